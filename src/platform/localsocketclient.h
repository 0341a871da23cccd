// The client's end of a local stream socket to a peer daemon.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/sync.h"
#include "platform/turn.h"
#include "platform/uniquefd.h"

namespace kelp {

// One connection at a time to the socket at a path, tried as a filesystem socket first and then as
// a name in the abstract namespace.
//
// Sending and receiving may go on at once on two threads, several threads may send (each message
// leaves whole), and any of them may close: a descriptor is closed only when nobody uses it any
// more. One thread receives at a time. Every wait ends at once when the calling Thread is stopped.
//
// A lost connection (end of stream, read or write error) is reopened by the client itself:
// - Reopen::kOnSend, for those who ask and then wait: the next ssend tries once to reopen and then
//   sends. When that fails nothing has left, and the following sreceive answers 6005 at once.
// - Reopen::kOnReceive, for a reader that stands by itself: ssend does the same, and sreceive, too,
//   reopens: it answers 1 for the loss itself; called again it tries about once a second until it
//   has a connection, the time-out is over or the thread is stopped. So a loop around it cannot
//   spin, however often a peer accepts and closes.
// - Reopen::kNever leaves that to the caller; what the peer sent before it went away can still be
//   received after an ssend has failed.
class LocalSocketClient {
  public:
    enum class Reopen { kOnSend, kOnReceive, kNever };

    explicit LocalSocketClient(std::string path, Reopen reopen = Reopen::kOnSend);

    // Connects, replacing a connection that is there. Returns its descriptor, which stays the
    // client's, or -1, also when the calling thread is asked to stop. Blocks for up to a second
    // while the peer's backlog is full.
    int sopen();

    // Writes all bytes. Returns 0, 6005 when there is no connection (never opened, closed, or lost
    // and not to be reopened), 6002 when the peer took no byte for 30 seconds, 1 when the
    // connection broke or the calling thread was stopped. After a result that is not 0 the peer has
    // not got the whole message, and never will.
    int ssend(const std::vector<char>& data);

    // Appends what the peer sent to `data`. A zero time-out waits without limit, another one at
    // most that long over all waiting. Once bytes are there, everything pending is taken without
    // waiting for more; only an answer that has reached 4 KiB is read on until 20 ms of quiet or
    // the end of the stream, so that a long answer is not cut in two. A peer that never pauses is
    // cut at 64 MiB, and with kOnSend its connection is given up (256 KiB with kOnReceive, where
    // the rest is simply the next message).
    // Returns 0 with bytes, or without: 1 when the connection was lost or the thread was stopped
    // (with kOnSend the connection is then given up, so that a late answer is nobody's), 6002 on
    // time-out, 6005 when there is no connection (and none is to be reopened) or the last sopen
    // failed.
    int sreceive(std::vector<char>& data, struct timeval timeout);

    // Drops the bytes that the connection holds, without waiting, and notices its loss. Returns how
    // many there were. More than 1 MiB ends the connection instead of chasing a peer that floods.
    size_t Discard();

    // Closes the connection; a sreceive that waits on it ends as if the peer had closed. With
    // kOnReceive that is the connection that sreceive last used: one that a request has reopened
    // since is not the one meant, and stays. It counts as lost then, not as closed.
    void sclose();

    // The current connection's descriptor or -1; only for telling, not for use.
    int Descriptor() const;

  private:
    enum class State {
        kClosed,  // never opened, closed on purpose, or the last sopen failed
        kOpen,
        kLost,  // by the peer; perhaps to be reopened
    };
    using Connection = std::shared_ptr<UniqueFd>;

    Connection Current() const;
    Connection CurrentToReceive();
    Connection Open();
    Connection Adopt(Connection connection);
    void Lose(const Connection& connection);
    Connection CurrentOrReopened();
    int Reconnect(int64_t deadlineMs);
    int Write(const Connection& connection, const std::vector<char>& data);
    int Collect(const Connection& connection, std::vector<char>& data,
                ssize_t (*receive)(int, void*, size_t));

    const std::string mPath;
    const Reopen mReopen;

    Turn mSending;  // held over one message; before mMutex

    mutable Mutex mMutex;  // a leaf
    State mState KELP_GUARDED_BY(mMutex) = State::kClosed;
    Connection mConnection KELP_GUARDED_BY(mMutex);
    const UniqueFd* mReceived KELP_GUARDED_BY(mMutex) = nullptr;  // what sreceive last used
    int64_t mNextReopenMs KELP_GUARDED_BY(mMutex) = 0;  // MonotonicMs before which none is tried
};

}  // namespace kelp
