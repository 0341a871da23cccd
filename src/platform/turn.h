// A lock that may be held over a wait.
#pragma once

#include "platform/sync.h"

namespace kelp {

// Lets one thread at a time pass, for as long as it likes. Unlike a mutex it may be held over an
// exchange with a peer that never answers, because Thread::Stop ends the wait for it. Who waits
// comes before who comes later.
class Turn {
  public:
    // Blocks until the turn is the caller's. False when the calling thread has been asked to stop
    // and would have to wait; the turn is then not taken.
    bool Enter() {
        MutexLock lock(mMutex);
        // Who has just left must not come in again past those who wait: a busy console would shut
        // out all others.
        if (!mTaken && mWaiting == 0) {
            mTaken = true;
            return true;
        }
        return AwaitTurn();
    }
    void Leave() {
        {
            MutexLock lock(mMutex);
            mTaken = false;
        }
        mLeft.Signal();
    }

  private:
    bool AwaitTurn() KELP_REQUIRES(mMutex);

    Mutex mMutex;
    CondVar mLeft;
    bool mTaken KELP_GUARDED_BY(mMutex) = false;
    int mWaiting KELP_GUARDED_BY(mMutex) = 0;
};

class TurnHolder {
  public:
    // Enters only if `wanted`.
    explicit TurnHolder(Turn& turn, bool wanted = true)
        : mTurn(turn), mHeld(wanted && turn.Enter()) {}
    ~TurnHolder() {
        if (mHeld) {
            mTurn.Leave();
        }
    }
    TurnHolder(const TurnHolder&) = delete;
    TurnHolder& operator=(const TurnHolder&) = delete;

    bool Held() const { return mHeld; }

  private:
    Turn& mTurn;
    const bool mHeld;
};

}  // namespace kelp
