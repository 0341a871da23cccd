// A bounded queue of a console's answers that wait to be written.
#pragma once

#include <cstdint>

#include "platform/sync.h"
#include "processor/command.h"
#include "processor/messagequeue.h"

namespace kelp {

// Any thread may enqueue answers; the console's send thread dequeues them. An answer counts until
// it is reported as done, so the one being written counts, too.
//
// At the limits the receive thread blocks and unsolicited messages are dropped; an answer to a
// request is never dropped here.
class SendQueue {
  public:
    static constexpr int64_t kMaxAnswers = 16384;
    static constexpr int64_t kMaxBytes = 4 << 20;

    // Takes ownership. Returns 0; or, at most once in ten seconds, how many unsolicited messages
    // (those without a request) were deleted at the limits since the last report.
    int64_t enqueue(Command* command);

    // MessageQueue::dequeue and poll.
    Command* dequeue() { return mQueue.dequeue(); }
    Command* poll() { return mQueue.poll(); }

    // A dequeued command no longer counts.
    void Done(const Command& command);

    // Blocks the receive thread while a limit is exceeded; Thread::Stop ends the wait.
    void WaitForRoom();

  private:
    bool Full() const KELP_REQUIRES(mRoomMutex) {
        return mAnswers > kMaxAnswers || mBytes > kMaxBytes;
    }
    int64_t CountDropped() KELP_REQUIRES(mRoomMutex);

    Mutex mRoomMutex;  // taken before Thread::mMutex (in WaitForRoom), otherwise a leaf
    CondVar mRoom;     // for the receive thread: signalled when the queue is full no more
    int64_t mAnswers KELP_GUARDED_BY(mRoomMutex) = 0;
    int64_t mBytes KELP_GUARDED_BY(mRoomMutex) = 0;
    int64_t mDropped KELP_GUARDED_BY(mRoomMutex) = 0;
    int64_t mReportedMs KELP_GUARDED_BY(mRoomMutex) = 0;  // 0: never
    MessageQueue<Command> mQueue;
};

}  // namespace kelp
