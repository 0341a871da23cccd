// Mutex and condition variable: annotated for clang's thread-safety analysis, and with timed waits
// on CLOCK_MONOTONIC (std::condition_variable follows the wall clock on Android).
#pragma once

#include <pthread.h>
#include <time.h>

#include <atomic>
#include <climits>
#include <cstdint>

#include "platform/annotations.h"

namespace kelp {

// Non-recursive; any thread may use it. Never fails once constructed.
class KELP_CAPABILITY("mutex") Mutex {
  public:
    Mutex() { pthread_mutex_init(&mMutex, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() KELP_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    void Unlock() KELP_RELEASE() { pthread_mutex_unlock(&mMutex); }

  private:
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

// Waits may wake without a signal: callers re-check their condition. A wait on one of the daemon's
// own threads goes through Thread::Wait instead, so that Thread::Stop can end it.
//
// On a futex of its own rather than on pthread_cond_t: glibc takes the mutex back in its contended
// form after every wait, which costs each hand-over between two threads a needless system call.
class CondVar {
  public:
    CondVar() = default;
    CondVar(const CondVar&) = delete;
    CondVar& operator=(const CondVar&) = delete;

    void Wait(Mutex& mutex) KELP_REQUIRES(mutex) { Sleep(mutex, nullptr); }
    // `deadlineMs` in milliseconds of MonotonicMs(). False when the deadline has passed.
    bool WaitUntil(Mutex& mutex, int64_t deadlineMs) KELP_REQUIRES(mutex) {
        struct timespec deadline;
        deadline.tv_sec = static_cast<time_t>(deadlineMs / 1000);
        deadline.tv_nsec = static_cast<long>(deadlineMs % 1000) * 1000000;
        return Sleep(mutex, &deadline);
    }
    void Signal() { Wake(1); }
    void Broadcast() { Wake(INT_MAX); }

  private:
    bool Sleep(Mutex& mutex, const struct timespec* deadline) KELP_REQUIRES(mutex);
    void Wake(int count);

    // A waiter counts itself before it reads the sequence, a waker moves the sequence before it
    // reads the count: one of the two always sees the other.
    std::atomic<uint32_t> mSequence{0};
    std::atomic<uint32_t> mWaiters{0};
};

// A small value that one thread changes while others read it: copyable, each access a whole copy
// under the value's own lock, which is a leaf (nothing else is taken while it is held).
template <typename T>
class Shared {
  public:
    Shared() : mValue() {}
    Shared(T value) : mValue(static_cast<T&&>(value)) {}  // NOLINT: stands for a T on purpose
    Shared(const Shared& other) : mValue(other.Get()) {}
    Shared& operator=(const Shared& other) {
        Set(other.Get());
        return *this;
    }
    Shared& operator=(T value) {
        Set(static_cast<T&&>(value));
        return *this;
    }

    T Get() const {
        MutexLock lock(mMutex);
        return mValue;
    }
    void Set(T value) {
        MutexLock lock(mMutex);
        mValue = static_cast<T&&>(value);
    }
    operator T() const { return Get(); }  // NOLINT: stands for a T on purpose

  private:
    mutable Mutex mMutex;
    T mValue KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
