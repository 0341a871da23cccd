// Mutex and condition variable, annotated for clang's thread-safety analysis (libstdc++'s are not).
#pragma once

#include <pthread.h>
#include <utility>

#include "platform/annotations.h"

namespace kelp {

// Non-recursive; any thread may use it. Never fails once constructed. While a lock that is
// called a leaf at its declaration is held, no other lock is taken, except that of the log.
class KELP_CAPABILITY("mutex") Mutex {
  public:
    Mutex() { pthread_mutex_init(&mMutex, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() KELP_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    void Unlock() KELP_RELEASE() { pthread_mutex_unlock(&mMutex); }

  private:
    friend class CondVar;

    pthread_mutex_t mMutex;
};

class KELP_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) KELP_ACQUIRE(mutex) : mMutex(mutex) { mMutex.Lock(); }
    ~MutexLock() KELP_RELEASE() { mMutex.Unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mMutex;
};

// Spurious wake-ups happen: callers re-check their condition. Outside of Thread use Thread::Wait,
// so that Thread::Stop can end the wait. Change the condition under its mutex; Signal and Broadcast
// may be called without it.
class CondVar {
  public:
    CondVar() { pthread_cond_init(&mCond, nullptr); }
    ~CondVar() { pthread_cond_destroy(&mCond); }
    CondVar(const CondVar&) = delete;
    CondVar& operator=(const CondVar&) = delete;

    void Wait(Mutex& mutex) KELP_REQUIRES(mutex) { pthread_cond_wait(&mCond, &mutex.mMutex); }
    void Signal() { pthread_cond_signal(&mCond); }
    void Broadcast() { pthread_cond_broadcast(&mCond); }

  private:
    pthread_cond_t mCond;
};

// A small value that one thread changes while others read it: copyable; each access copies it under
// its own lock, a leaf (no other lock is taken while it is held).
template <typename T>
class Shared {
  public:
    Shared() : mValue() {}
    Shared(T value) : mValue(std::move(value)) {}  // NOLINT: implicit on purpose
    Shared(const Shared& other) : mValue(other.Get()) {}
    Shared& operator=(const Shared& other) {
        Set(other.Get());
        return *this;
    }
    Shared& operator=(T value) {
        Set(std::move(value));
        return *this;
    }

    T Get() const {
        MutexLock lock(mMutex);
        return mValue;
    }
    void Set(T value) {
        MutexLock lock(mMutex);
        mValue = std::move(value);
    }
    operator T() const { return Get(); }  // NOLINT: implicit on purpose

  private:
    mutable Mutex mMutex;
    T mValue KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
