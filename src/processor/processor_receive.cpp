// The receive loop of a console.

#include <errno.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "platform/fdset.h"
#include "platform/log.h"
#include "processor/clientdescriptor.h"
#include "processor/processor.h"

namespace kelp {

namespace {

constexpr int kRetryPauseMs = 10;
// Tries of one read that bring nothing, one after the other, before it is given up: the bytes that
// the descriptor announced went elsewhere.
constexpr int kMaxFruitlessReads = 100;
constexpr size_t kMaxUnframedBytes = 16u << 20;

}  // namespace

void Processor::ReceiveCmd() {
    if (!mRecvRunning) {
        // Between the flag and the mark of a Stop; the thread calls again until it is marked.
        Thread::SleepMs(kRetryPauseMs);
        return;
    }
    FD_ZERO(&mReadFds);
    const int serverFd = mServerFd;
    if (serverFd != -1) {  // not closed again since the start
        FdSetInsert(serverFd, mReadFds);
    }
    mTimed = false;
    while (mRecvRunning && !Thread::StopRequested()) {
        ReceiveOnce();
    }
}

// What select watches: of mReadFds only what is still held, since a number that was closed under
// the loop may by now be somebody else's.
void Processor::CollectDescriptors(fd_set& set) {
    FD_ZERO(&set);
    MutexLock lock(mFdMutex);
    if (mServerFd != -1 && FdSetContains(mServerFd, mReadFds)) {
        FdSetInsert(mServerFd, set);
    }
    for (const int fd : mClientFds) {
        if (fd != -1 && FdSetContains(fd, mReadFds)) {
            FdSetInsert(fd, set);
        }
    }
}

void Processor::ReceiveOnce() {
    fd_set ready;
    ++mSelectRound;
    CollectDescriptors(ready);
    const int wakeFd = Thread::WakeFd();
    if (wakeFd != -1) {
        FdSetInsert(wakeFd, ready);
    }
    struct timeval tick = mTimeTick;  // select may write to it
    const int count = select(std::max(GetMaxFd(), wakeFd) + 1, &ready, nullptr, nullptr,
                             mTimed ? &tick : nullptr);
    const int error = errno;
    ++mSelectRound;
    mReceiveConfig = mConfigManager->GetReceiveConfig();
    if (count < 0) {
        if (error != EINTR) {
            OnSelectFailure(error);
        }
        return;
    }
    if (count == 0) {
        if (mReceiveConfig->mode == kReceiveTimeTick) {
            ProcessCmdData();
            mTimed = false;
        }
        return;
    }
    if (wakeFd != -1 && FdSetContains(wakeFd, ready) && (!Thread::TakeNudge() || count == 1)) {
        return;
    }
    OnReadable(ready);
}

void Processor::OnSelectFailure(int error) {
    // Pace the loop, and with it this record.
    Thread::SleepMs(kRetryPauseMs);
    KLOG_AS("ReceiveCmd", kLogError) << GetName() << "-->Fail to monitor, errno = " << error;
    int fd = mServerFd;
    if (fd != -1) {
        FdSetRemove(fd, mReadFds);
        {
            MutexLock lock(mFdMutex);
            DisConnect(fd);
            mServerFd = -1;
        }
        // Not watched again on purpose: the console stays deaf until it is switched off and on.
        Open();
    }
    mRecvBuffer.Clear();
}

void Processor::OnReadable(fd_set& ready) {
    if (mMode == DEVICE_MODE) {
        ReceiveFrom(mServerFd);
        return;
    }
    if (AcceptClient(ready) != 1) {
        return;
    }
    std::array<int, MAX_CLIENT_NUM> clientFds;
    {
        MutexLock lock(mFdMutex);
        std::copy(mClientFds.begin(), mClientFds.end(), clientFds.begin());
    }
    for (const int fd : clientFds) {
        if (fd != -1 && FdSetContains(fd, ready)) {
            ReceiveFrom(fd);
        }
    }
}

void Processor::ReceiveFrom(int fd) {
    const int result = ReceiveCmdData(fd);
    if (result >= 1 && ThrowException(result, fd)) {
        mRecvBuffer.Clear();
        return;
    }
    ApplyFraming();
}

void Processor::ApplyFraming() {
    if (mReceiveConfig->mode == kReceiveTail) {
        ProcessCmdData();
        mTimed = false;
    } else if (mReceiveConfig->mode == kReceiveTimeTick) {
        const int milliseconds = std::max(mReceiveConfig->millisecond, 0);
        mTimeTick.tv_sec = milliseconds / 1000;
        mTimeTick.tv_usec = (milliseconds % 1000) * 1000;
        mTimed = true;
    }
    if (mRecvBuffer.Size() > kMaxUnframedBytes) {
        KLOG(kLogError) << GetName() << "-->" << mRecvBuffer.Size() << " unframed bytes dropped";
        mRecvBuffer.Clear();
    }
}

int Processor::ReceiveCmdData(int fd) {
    mCurrentFd = -1;
    mCurrentClient.reset();
    if (fd == -1) {
        return kErrorInvalidDescriptor;
    }
    MutexLock lock(mFdMutex);
    std::shared_ptr<ClientDescriptor> client = FindClient(fd);
    if (client == nullptr) {
        return EBADF;  // closed by another thread since select saw it
    }
    if (client->Gone()) {
        return EIO;  // given up by the send thread; what it still sends is not read
    }
    int pending = 0;
    if (ioctl(fd, FIONREAD, &pending) < 0) {
        return errno;
    }
    KLOG(kLogDebug) << GetName() << "-->" << pending << " charactor(s) received. error->" << errno;
    if (pending == 0) {
        return EIO;
    }
    if (ReadBuffer(fd, std::min(pending, READ_BUF_SIZE)) < 0) {
        return kErrorNormal;
    }
    mCurrentFd = fd;
    mCurrentClient = std::move(client);
    return 0;
}

int Processor::ReadBuffer(int fd, int count) {
    if (fd < 0) {
        KLOG(kLogError) << GetName() << "--> Error FD!!!";
        return -1;
    }
    if (count < 1) {
        return 0;
    }
    count = std::min(count, READ_BUF_SIZE);
    int got = 0;
    int fruitless = 0;
    while (got < count && fruitless < kMaxFruitlessReads) {
        const ssize_t n = read(fd, mReadBuf.get() + got, static_cast<size_t>(count - got));
        if (n > 0) {
            got += static_cast<int>(n);
            fruitless = 0;
            continue;
        }
        if (n < 0 && errno != EINTR && errno != EAGAIN) {
            KLOG(kLogError) << GetName() << "--> Read Error!";
            mRecvBuffer.Clear();
            return -1;
        }
        ++fruitless;
        if (!Thread::SleepMs(kRetryPauseMs)) {
            break;
        }
    }
    mRecvBuffer.Append(mReadBuf.get(), static_cast<size_t>(got));
    return got;
}

bool Processor::ThrowException(int code, int& fd) {
    if (code >= 5000) {
        KLOG(kLogError) << GetName() << " --> KELP predefined error.errno->" << code;
        return true;
    }
    if (code < 1 || code > 254) {
        return false;
    }
    KLOG(kLogError) << GetName() << "-->ioctl read error.errno->" << code;
    if (code == EINTR || code == EAGAIN) {
        return false;
    }
    if (code != EIO && code != EBADF) {
        return true;
    }
    if (mMode == DEVICE_MODE) {
        ReConnect();
        return true;
    }
    RemoveClient(fd);
    FdSetRemove(fd, mReadFds);
    fd = -1;
    return true;
}

}  // namespace kelp
