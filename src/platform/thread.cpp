#include "platform/thread.h"

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "platform/clock.h"
#include "platform/log.h"

namespace kelp {

namespace {

constexpr size_t kStackBytes = 1024 * 1024;
constexpr size_t kMaxNameLength = 15;

}  // namespace

Thread::Thread(Runnable* runnable, std::string name)
    : mRunnable(runnable), mName(std::move(name)) {}

Thread::~Thread() {
    Stop();
    MutexLock lock(mMutex);
    if (mState != State::kIdle) {
        pthread_join(mHandle, nullptr);
    }
}

void Thread::SetName(std::string name) {
    MutexLock lock(mMutex);
    mName = std::move(name);
}

bool Thread::Start() {
    MutexLock lock(mMutex);
    if (!mWakeFd.Ok()) {
        mWakeFd.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!mWakeFd.Ok()) {
            KLOG(kLogError) << mName << "-->no wake-up descriptor, errno = " << errno;
            return false;
        }
    }
    Unmark();
    if (mState == State::kRunning) {
        mChanged.Broadcast();
        return true;
    }
    if (mState == State::kEnded) {
        pthread_join(mHandle, nullptr);
        mState = State::kIdle;
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    const int result = pthread_create(&mHandle, &attributes, Entry, this);
    pthread_attr_destroy(&attributes);
    if (result != 0) {
        KLOG(kLogError) << mName << "-->no thread, errno = " << result;
        return false;
    }
    mState = State::kRunning;
    return true;
}

void Thread::Stop() {
    {
        MutexLock lock(mMutex);
        if (mState == State::kIdle) {
            return;
        }
        Mark();
    }
    if (sCurrent != this) {
        Wake();
        WaitUntilEnded();
    }
}

void Thread::Mark() {
    mStop.store(true);
    eventfd_write(mWakeFd.Get(), 1);  // fails only if it is readable already
}

void Thread::Unmark() {
    mStop.store(false);
    eventfd_t count;
    eventfd_read(mWakeFd.Get(), &count);  // fails if the thread was not marked
}

void Thread::Wake() {
    Mutex* mutex;
    CondVar* cond;
    {
        MutexLock lock(mMutex);
        mutex = mParkMutex;
        cond = mParkCond;
        const int fd = mParkFd.load();
        if (fd != -1) {
            // Under the lock: the thread cannot leave Receive, so its socket stays open.
            shutdown(fd, SHUT_RDWR);
        }
    }
    if (mutex != nullptr) {
        // Wait() registers under this mutex, so by now the thread is in the wait or past it.
        MutexLock lock(*mutex);
        cond->Broadcast();
    }
}

void Thread::WaitUntilEnded() {
    MutexLock lock(mMutex);
    while (mState == State::kRunning && mStop.load()) {
        mChanged.Wait(mMutex);
    }
    if (mState == State::kEnded) {
        pthread_join(mHandle, nullptr);
        mState = State::kIdle;
    }
}

void* Thread::Entry(void* self) {
    static_cast<Thread*>(self)->Loop();
    return nullptr;
}

void Thread::Loop() {
    sCurrent = this;
    std::string name;
    {
        MutexLock lock(mMutex);
        name = mName.substr(0, kMaxNameLength);
    }
    pthread_setname_np(pthread_self(), name.c_str());
    for (;;) {
        while (!mStop.load()) {
            mRunnable->Run();
        }
        MutexLock lock(mMutex);
        if (mStop.load()) {
            mState = State::kEnded;
            mChanged.Broadcast();
            return;
        }
    }
}

int Thread::WakeFd() {
    return sCurrent != nullptr ? sCurrent->mWakeFd.Get() : -1;
}

WaitResult Thread::WaitFd(int fd, short events, int timeoutMs) {
    // poll ignores negative descriptors: SleepMs has no `fd`, other threads have no WakeFd.
    struct pollfd fds[2] = {{fd, events, 0}, {WakeFd(), POLLIN, 0}};
    const int64_t deadline = timeoutMs < 0 ? 0 : MonotonicMs() + timeoutMs;
    int left = timeoutMs;
    for (;;) {
        const int ready = poll(fds, 2, left);  // fails only with EINTR: so few need no memory
        if (ready > 0 && fds[1].revents != 0 && StopRequested()) {
            return WaitResult::kStopped;
        }
        if (ready > 0 && fds[0].revents != 0) {
            return WaitResult::kReady;
        }
        if (ready == 0) {
            return WaitResult::kTimeOut;
        }
        if (timeoutMs >= 0) {
            left = static_cast<int>(std::max<int64_t>(deadline - MonotonicMs(), 0));
        }
    }
}

void Thread::UnparkFd() {
    mParkFd.store(-1);
    if (mStop.load()) {
        // A Stop that has read mParkFd uses the socket under this lock: wait for it.
        MutexLock lock(mMutex);
    }
}

ssize_t Thread::Receive(int fd, void* buffer, size_t size) {
    Thread* const self = sCurrent;
    ssize_t n = -1;
    if (self != nullptr) {
        self->mParkFd.store(fd);
    }
    while (!StopRequested() && (n = recv(fd, buffer, size, 0)) < 0 && errno == EINTR) {
    }
    const int error = errno;
    if (self != nullptr) {
        self->UnparkFd();
    }
    const bool stopped = StopRequested();
    errno = stopped ? ECANCELED : error;
    return stopped ? -1 : n;
}

bool Thread::SleepMs(int milliseconds) {
    return WaitFd(-1, 0, std::max(milliseconds, 0)) != WaitResult::kStopped;
}

bool Thread::Wait(CondVar& cond, Mutex& mutex) {
    Thread* const self = sCurrent;
    if (self == nullptr) {
        cond.Wait(mutex);
        return true;
    }
    {
        MutexLock lock(self->mMutex);
        if (self->mStop.load()) {
            return false;
        }
        self->mParkMutex = &mutex;
        self->mParkCond = &cond;
    }
    cond.Wait(mutex);
    MutexLock lock(self->mMutex);
    self->mParkMutex = nullptr;
    self->mParkCond = nullptr;
    return !self->mStop.load();
}

}  // namespace kelp
