// A lock that may be held over a wait.
#pragma once

#include "platform/sync.h"

namespace kelp {

// Lets one thread at a time pass, for as long as it likes. Unlike a mutex it may be held over an
// exchange with a peer that never answers, because Thread::Stop ends the wait for it. Who waits
// comes before who comes later.
class Turn {
  public:
    // Blocks until the turn is the caller's. False when the calling thread was asked to stop while
    // it waited; the turn is then not taken. A turn that is free is given in any case.
    bool Enter();
    void Leave();

  private:
    Mutex mMutex;
    CondVar mLeft;
    bool mTaken KELP_GUARDED_BY(mMutex) = false;
    int mWaiting KELP_GUARDED_BY(mMutex) = 0;
};

class TurnHolder {
  public:
    explicit TurnHolder(Turn& turn) : mTurn(turn), mHeld(turn.Enter()) {}
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
