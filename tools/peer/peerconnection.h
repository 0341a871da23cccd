// One client of a bench peer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "peer/answerqueue.h"
#include "peer/peerlog.h"
#include "peer/peerscript.h"
#include "peer/requestcutter.h"
#include "platform/uniquefd.h"

namespace kelp::tools {

// Never blocks. While too much output waits for a client that does not read, its requests are
// neither read nor answered and unsolicited messages are skipped. Times are milliseconds of
// MonotonicMs. One thread.
class PeerConnection {
  public:
    // `role` and `log` must outlive it. `fd` is a stream socket.
    PeerConnection(UniqueFd fd, const Role& role, std::string name, const PeerLog& log,
                   int64_t nowMs);
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    int Fd() const { return mFd.Get(); }
    // The poll(2) events to wait for, besides hang-up and errors.
    short Events() const;
    // When to call Serve without an event; -1: never.
    int64_t NextDueMs() const;
    // Does all work that is due. False when the connection has ended and must be destroyed.
    bool Serve(short revents, int64_t nowMs);

  private:
    struct Timer {
        const Answer* answer;
        int64_t dueMs;  // -1: no more
    };

    bool HasRoom() const;  // for more output
    bool MayRead() const;
    bool Read();
    void AnswerRequests(int64_t nowMs);
    void SendUnsolicited(int64_t nowMs);
    bool Write(int64_t nowMs);

    const UniqueFd mFd;
    const Role& mRole;
    const std::string mName;
    const PeerLog& mLog;
    RequestCutter mCutter;
    AnswerQueue mQueue;
    std::vector<Timer> mTimers;
    bool mInputEnded = false;
    bool mBlocked = false;  // the last write would have blocked
    bool mIsHeld = false;   // requests that have been read may wait for room
};

}  // namespace kelp::tools
