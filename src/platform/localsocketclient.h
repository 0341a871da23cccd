// The client's end of a local stream socket to a peer daemon.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/uniquefd.h"

namespace kelp {

// Result of an operation on a connection.
enum class LocalResult {
    kDone,
    kLost,     // the peer has closed the connection, or it broke
    kStopped,  // the calling Thread has been asked to stop
    kTimeOut,
    kCut,     // ssend only: time-out or stop after a part was sent
    kClosed,  // there is no connection
};

// The error code of a result: 0, 1 (connection lost, thread stopped), 6002 or 6005.
int ToErrorCode(LocalResult result);

// One connection to the socket at a path, tried as a filesystem socket first and then as a name in
// the abstract namespace. Nothing is retried, reopened or closed automatically: the caller does
// that.
//
// Call sopen and sclose only while no other thread uses the object. In between, one thread may send
// while another receives or discards, and any thread may call Shutdown. To reconnect while threads
// share the object, open a new one instead. Every wait ends at once when the calling Thread is
// stopped.
class LocalSocketClient {
  public:
    static constexpr int kBusyMs = 1000;
    static constexpr int64_t kNoDeadline = INT64_MAX;

    explicit LocalSocketClient(std::string path);

    // Connects. An existing connection is closed once the new one is made, and kept on failure.
    // Returns the descriptor, which this object owns, or -1. Waits up to `busyMs` milliseconds
    // while the peer's backlog is full.
    int sopen(int busyMs = kBusyMs);

    // Writes all bytes: kDone. Otherwise the peer has not got the whole message, and never will:
    // kTimeOut when it took none of it for 30 seconds or until `deadlineMs` (of MonotonicMs);
    // kStopped, kClosed, kLost; kCut when only a part was sent: the peer reads the end of the
    // stream after it, and every later ssend returns kLost. What the peer has sent can still be
    // received in all cases.
    LocalResult ssend(const std::vector<char>& data, int64_t deadlineMs = kNoDeadline);

    // Appends the bytes of one read, at least one, to `data`: kDone. Otherwise appends nothing:
    // kLost, kStopped, kTimeOut or kClosed. A zero time-out waits without limit; a stop then also
    // ends the connection.
    LocalResult sreceive(std::vector<char>& data, struct timeval timeout);

    // Drops the bytes that have arrived, without waiting, and adds their number to `dropped`.
    // kDone; kClosed; kLost when the peer has closed the connection, or more than 1 MiB has
    // arrived.
    LocalResult Discard(size_t& dropped);

    // Shuts the connection down in both directions and ends the waits on it; the descriptor stays
    // open. Bytes that have arrived can still be received, then every call returns kLost.
    void Shutdown();

    void sclose() { mFd.Reset(); }

    // The connection's descriptor or -1; to report it, not for I/O.
    int Descriptor() const { return mFd.Get(); }

  private:
    const std::string mPath;
    UniqueFd mFd;
};

}  // namespace kelp
