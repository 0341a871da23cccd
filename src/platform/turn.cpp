#include "platform/turn.h"

#include "platform/thread.h"

namespace kelp {

bool Turn::Enter() {
    MutexLock lock(mMutex);
    while (mTaken) {
        if (!Thread::Wait(mLeft, mMutex)) {
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
