#include "processor/sendqueue.h"

#include "platform/clock.h"
#include "platform/thread.h"

namespace kelp {

namespace {

constexpr int kReportPauseMs = 10000;

}  // namespace

int64_t SendQueue::enqueue(Command* command) {
    if (Full() && command->GetRequest()->empty()) {
        delete command;
        return CountDropped();
    }
    mAnswers += 1;
    mBytes += static_cast<int64_t>(command->mResponse.size());
    mQueue.enqueue(command);
    return 0;
}

int64_t SendQueue::CountDropped() {
    MutexLock lock(mRoomMutex);
    ++mDropped;
    const int64_t now = MonotonicMs();
    if (mReportedMs != 0 && now - mReportedMs < kReportPauseMs) {
        return 0;
    }
    mReportedMs = now;
    const int64_t dropped = mDropped;
    mDropped = 0;
    return dropped;
}

void SendQueue::Done(const Command& command) {
    const auto size = static_cast<int64_t>(command.mResponse.size());
    const int64_t answers = mAnswers.fetch_sub(1);
    const int64_t bytes = mBytes.fetch_sub(size);
    // fetch_sub shows which call crossed a limit.
    if (answers == kMaxAnswers + 1 || (bytes > kMaxBytes && bytes - size <= kMaxBytes)) {
        MutexLock lock(mRoomMutex);
        mRoom.Broadcast();
    }
}

void SendQueue::WaitUntilNotFull() {
    MutexLock lock(mRoomMutex);
    while (Full() && Thread::Wait(mRoom, mRoomMutex)) {
    }
}

}  // namespace kelp
