#include "platform/turn.h"

#include "platform/thread.h"

namespace kelp {

bool Turn::Enter() {
    MutexLock lock(mMutex);
    // Who has just left must not come in again past those who wait: a busy console would shut out
    // all others.
    if (mTaken || mWaiting > 0) {
        ++mWaiting;
        bool stopped;
        do {
            stopped = !Thread::Wait(mLeft, mMutex);
        } while (mTaken && !stopped);
        --mWaiting;
        if (stopped) {
            // The signal that woke this thread may have been meant for the next in line.
            mLeft.Signal();
            return false;
        }
    }
    mTaken = true;
    return true;
}

void Turn::Leave() {
    {
        MutexLock lock(mMutex);
        mTaken = false;
    }
    mLeft.Signal();
}

}  // namespace kelp
