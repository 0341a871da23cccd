// The client's end of a local stream socket to a peer daemon.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/uniquefd.h"

namespace kelp {

// What came of an operation on a connection.
enum class LocalResult {
    kDone,
    kLost,     // the peer has closed the connection, or it broke
    kStopped,  // the calling Thread has been asked to stop
    kTimeOut,
    kCut,     // of ssend: the time was over, or the thread stopped, when a part had left
    kClosed,  // there is no connection
};

// The number by which modules report the result: 0, 1 for a connection that is over, 6002 or 6005.
int ToErrorCode(LocalResult result);

// One connection to the socket at a path, tried as a filesystem socket first and then as a name in
// the abstract namespace. Nothing is repeated, reopened or closed by itself: that is the caller's.
//
// sopen and sclose may be called while nobody else uses the object. In between one thread may send
// while another one receives or discards, and any thread may call Shutdown. Whoever shares a
// connection between threads therefore opens a new object instead of the old one again. Every wait
// ends at once when the calling Thread is stopped.
class LocalSocketClient {
  public:
    static constexpr int kBusyMs = 1000;
    static constexpr int64_t kNoDeadline = INT64_MAX;

    explicit LocalSocketClient(std::string path);

    // Connects. A connection that is there is closed once the new one stands; a failure leaves it
    // alone. Returns the descriptor, which stays the client's, or -1. Waits up to `busyMs`
    // milliseconds while the peer's backlog is full.
    int sopen(int busyMs = kBusyMs);

    // Writes all bytes: kDone. Else the peer has not got the whole message, and never will:
    // kTimeOut when it took none of it for 30 seconds or until `deadlineMs` (of MonotonicMs),
    // kStopped, kClosed, kLost; kCut when it took a part only, which it then sees the end of the
    // stream behind, and every later message is kLost. What the peer has sent can still be received
    // in all cases.
    LocalResult ssend(const std::vector<char>& data, int64_t deadlineMs = kNoDeadline);

    // Appends what one read brings to `data`, at least a byte: kDone. Else nothing: kLost,
    // kStopped, kTimeOut or kClosed. A zero time-out waits without limit; a stop then ends the
    // connection, too.
    LocalResult sreceive(std::vector<char>& data, struct timeval timeout);

    // Drops the bytes that are there, without waiting, and adds their number to `dropped`. kDone;
    // kClosed; kLost when the peer has closed the connection, or floods it with more than 1 MiB.
    LocalResult Discard(size_t& dropped);

    // Ends the connection for both sides, and the waits on it; the descriptor stays open. What has
    // come can still be received, then everything is kLost.
    void Shutdown();

    void sclose() { mFd.Reset(); }

    // The connection's descriptor or -1; only for telling, not for use.
    int Descriptor() const { return mFd.Get(); }

  private:
    const std::string mPath;
    UniqueFd mFd;
};

}  // namespace kelp
