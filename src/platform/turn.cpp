#include "platform/turn.h"

#include "platform/thread.h"

namespace kelp {

bool Turn::AwaitTurn(bool always) {
    ++mWaiting;
    bool stopped = false;
    do {
        if (always) {
            mLeft.Wait(mMutex);
        } else {
            stopped = !Thread::Wait(mLeft, mMutex);
        }
    } while (mTaken && !stopped);
    --mWaiting;
    if (stopped) {
        // This thread may have consumed a signal: pass it on to the next waiter.
        mLeft.Signal();
        return false;
    }
    mTaken = true;
    return true;
}

}  // namespace kelp
