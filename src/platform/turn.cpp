#include "platform/turn.h"

#include "platform/thread.h"

namespace kelp {

bool Turn::AwaitTurn() {
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
    mTaken = true;
    return true;
}

}  // namespace kelp
