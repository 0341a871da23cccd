// A lock that may be held while waiting for a peer.
#pragma once

#include "platform/sync.h"

namespace kelp {

// Held by one thread at a time, without time limit. Unlike a mutex it may be held during an
// exchange with a peer that never answers, because Thread::Stop ends the wait for it. Waiting
// threads go before new callers.
class Turn {
  public:
    // Blocks until the caller holds the turn. False, without the turn, when the calling thread has
    // been asked to stop and would have to wait; with `always` it waits.
    bool Enter(bool always = false) {
        MutexLock lock(mMutex);
        // No overtaking: a busy console that leaves and re-enters would starve the others.
        if (!mTaken && mWaiting == 0) {
            mTaken = true;
            return true;
        }
        return AwaitTurn(always);
    }
    void Leave() {
        {
            MutexLock lock(mMutex);
            mTaken = false;
        }
        mLeft.Signal();
    }

  private:
    bool AwaitTurn(bool always) KELP_REQUIRES(mMutex);

    Mutex mMutex;  // taken before Thread::mMutex (in AwaitTurn), otherwise a leaf
    CondVar mLeft;
    bool mTaken KELP_GUARDED_BY(mMutex) = false;
    int mWaiting KELP_GUARDED_BY(mMutex) = 0;
};

class TurnHolder {
  public:
    // Enters only if `wanted`.
    explicit TurnHolder(Turn& turn, bool wanted = true, bool always = false)
        : mTurn(turn), mHeld(wanted && turn.Enter(always)) {}
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
