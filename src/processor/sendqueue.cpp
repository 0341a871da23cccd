#include "processor/sendqueue.h"

#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"

namespace kelp {

namespace {

constexpr int kReportPauseMs = 10000;

}  // namespace

int64_t SendQueue::enqueue(Command* command) {
    {
        MutexLock lock(mRoomMutex);
        if (Full() && command->GetRequest()->empty()) {
            delete command;
            return CountDropped();
        }
        ++mAnswers;
        mBytes += static_cast<int64_t>(command->mResponse.size());
    }
    mQueue.enqueue(command);
    return 0;
}

int64_t SendQueue::CountDropped() {
    ++mDropped;
    const int64_t now = MonotonicMs();
    if (mReportedMs != 0 && now - mReportedMs < kReportPauseMs) {
        return 0;
    }
    mReportedMs = now;
    return std::exchange(mDropped, 0);
}

void SendQueue::Done(const Command& command) {
    MutexLock lock(mRoomMutex);
    const bool wasFull = Full();
    --mAnswers;
    mBytes -= static_cast<int64_t>(command.mResponse.size());
    if (wasFull && !Full()) {
        mRoom.Signal();
    }
}

void SendQueue::WaitForRoom() {
    MutexLock lock(mRoomMutex);
    while (Full() && Thread::Wait(mRoom, mRoomMutex)) {
    }
}

}  // namespace kelp
