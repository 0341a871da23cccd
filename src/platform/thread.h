// A restartable worker thread, and the waits that its Stop() can end.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <string>

#include "platform/sync.h"
#include "platform/uniquefd.h"

namespace kelp {

class Runnable {
  public:
    virtual ~Runnable() = default;
    // Called repeatedly until the thread is stopped; must return soon after Thread::StopRequested()
    // becomes true.
    virtual void Run() = 0;
};

// A Runnable that calls a member function of an object, which it does not own.
template <typename T, void (T::*Method)()>
class MemberRunnable : public Runnable {
  public:
    explicit MemberRunnable(T* object) : mObject(object) {}
    void Run() override { (mObject->*Method)(); }

  private:
    T* const mObject;
};

enum class WaitResult { kReady, kTimeOut, kStopped };

// Runs a Runnable on its own thread. Start and Stop may be called any number of times from any
// thread, this one included; the owner destroys the object from another thread, when no other
// thread calls it any more.
//
// Stop is not a signal and not a cancellation: it sets the stop flag and makes a descriptor
// readable that every wait below includes, so a flag set just before a wait ends that wait too.
// Code that runs on a Thread waits without a limit only through these functions (or in its own
// select with WakeFd in it). Other waits are short: a log backend that takes no record, a client
// whose close is not to be overtaken by a reset.
class Thread {
  public:
    explicit Thread(Runnable* runnable) : Thread(runnable, "kelp") {}
    // `runnable` is not owned. `name` is shown by ps and top, cut to 15 characters.
    Thread(Runnable* runnable, std::string name);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Takes effect when the next thread is created.
    void SetName(std::string name);

    // Starts the thread; if it was stopped but has not ended yet, the stop is withdrawn. False when
    // no thread could be created.
    bool Start();

    // From the thread itself: only sets its stop flag. From another thread: sets the flag, ends its
    // wait and blocks until it has ended (or was started again by another thread). Threads that
    // stop each other in a cycle deadlock.
    void Stop();

    // True on this object's thread.
    bool IsCurrent() const { return sCurrent == this; }
    // For the calling thread; always false on a thread that no Thread object runs.
    static bool StopRequested() { return sCurrent != nullptr && sCurrent->mStop.load(); }
    // Readable once the calling thread has been asked to stop; -1 where no Thread object runs it.
    static int WakeFd();
    // Waits for poll(2) `events` on `fd`, or for a hang-up or error of it. `timeoutMs` in
    // milliseconds, negative: without limit.
    static WaitResult WaitFd(int fd, short events, int timeoutMs);
    // recv(2) on a connected socket in blocking mode, without time limit: one system call instead
    // of two (WaitFd, recv). Stop ends it by shutting the socket down, so the connection is lost.
    // Returns what recv returns; -1 with ECANCELED when the calling thread is asked to stop, even
    // if data has arrived. Keep `fd` open until this returns.
    static ssize_t Receive(int fd, void* buffer, size_t size);
    // False when the sleep was ended by Stop.
    static bool SleepMs(int milliseconds);
    // Waits on a condition variable whose mutex is held, once: the caller re-checks its condition.
    // False when the calling thread has been asked to stop. Lock order: `mutex` before a Thread's
    // mMutex.
    static bool Wait(CondVar& cond, Mutex& mutex) KELP_REQUIRES(mutex);

  private:
    enum class State { kIdle, kRunning, kEnded };

    static void* Entry(void* self);
    void Loop();
    void Mark() KELP_REQUIRES(mMutex);
    void Unmark() KELP_REQUIRES(mMutex);
    void Wake();
    void UnparkFd();
    void WaitUntilEnded();

    inline static thread_local Thread* sCurrent = nullptr;

    Runnable* const mRunnable;
    UniqueFd mWakeFd;  // eventfd, made by the first Start; readable while mStop is set
    std::atomic<bool> mStop{false};  // written under mMutex

    Mutex mMutex;  // a leaf
    CondVar mChanged;
    std::string mName KELP_GUARDED_BY(mMutex);
    State mState KELP_GUARDED_BY(mMutex) = State::kIdle;
    pthread_t mHandle KELP_GUARDED_BY(mMutex) = {};
    // What this thread waits on in Wait(), so that Stop can wake it there.
    Mutex* mParkMutex KELP_GUARDED_BY(mMutex) = nullptr;
    CondVar* mParkCond KELP_GUARDED_BY(mMutex) = nullptr;
    // The socket in Receive(). The thread writes mParkFd and then reads mStop, Stop writes mStop
    // and then reads mParkFd: at least one sees the other's write.
    std::atomic<int> mParkFd{-1};
};

}  // namespace kelp
