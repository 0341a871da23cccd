// Life and connections of a console. The receive loop is in processor_receive.cpp, framing and the
// way of the answers in processor_send.cpp.

#include "processor/processor.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>

#include "config/configmanager.h"
#include "platform/clock.h"
#include "platform/fdset.h"
#include "platform/log.h"
#include "processor/clientdescriptor.h"

namespace kelp {

namespace {

constexpr int kLetGoTries = 1000;
constexpr int kLetGoPauseMs = 1;
constexpr int kAcceptPauseMs = 50;
constexpr int kAcceptLogPauseMs = 10000;

}  // namespace

Processor::Processor(ConfigManager* configManager, MessagerManager* messagerManager,
                     ProcessorModeE mode)
    : mConfigManager(configManager),
      mMessagerManager(messagerManager),
      mMode(mode),
      mClientFds(MAX_CLIENT_NUM, -1),
      mClients(MAX_CLIENT_NUM),
      mReadBuf(new char[READ_BUF_SIZE]),
      mSendRunnable(new SendRunnable(this)),
      mRecvRunnable(new ReceiveRunnable(this)),
      mSendThread(new Thread(mSendRunnable.get())),
      mRecvThread(new Thread(mRecvRunnable.get())) {
    FD_ZERO(&mReadFds);
    mRecvCmdQueue.mWaitable = false;
}

Processor::~Processor() {
    mRecvRunning = false;
    mSendRunning = false;
}

const std::string& Processor::GetName() const {
    return mConsoleConfig->name;
}

int Processor::Start() {
    MutexLock life(mLifeMutex);
    if (mRecvRunning && !IsConnect()) {
        // The console lost its descriptor and its loop has nothing to watch: begin afresh.
        EndThreads();
    }
    if (!mRecvRunning) {
        // Nothing of an earlier life: the threads are not running, so all of this is ours.
        mReceiveConfig = mConfigManager->GetReceiveConfig();
        mRecvBuffer.Clear();
        mCurrentFd = -1;
        mCurrentClient.reset();
        mTimed = false;
    }
    if (!mConsoleConfig->active) {
        KLOG(kLogError) << GetName() << "-->current status is deactive.";
        return -1;
    }
    const int fd = Open();
    if (fd == -1) {
        KLOG(kLogError) << GetName() << "-->start fail";
        return -1;
    }
    KLOG(kLogDebug) << GetName() << " server side: fd<" << fd << ">";
    mRecvRunning = true;
    mSendRunning = true;
    mSendThread->SetName(GetName() + "-send");
    mRecvThread->SetName(GetName() + "-recv");
    if (!mSendThread->Start() || !mRecvThread->Start()) {
        KLOG(kLogError) << GetName() << "-->start fail";
        EndThreads();
        return -1;
    }
    return 0;
}

void Processor::EndThreads() {
    mRecvRunning = false;
    mSendRunning = false;
    mSendThread->Stop();
    mRecvThread->Stop();
    DisConnect();
}

void Processor::Stop() {
    {
        MutexLock life(mLifeMutex);
        EndThreads();
    }
    // Outside the lock: completing a command may start or stop a console, this one included.
    DropAnswers();
}

int Processor::Open() {
    const int fd = Connect();
    MutexLock lock(mFdMutex);
    mServerFd = fd;
    if (mMode == DEVICE_MODE && fd != -1) {
        mDevice = std::make_shared<ClientDescriptor>(UniqueFd(fcntl(fd, F_DUPFD_CLOEXEC, 0)));
    }
    return fd;
}

void Processor::DisConnect() {
    {
        MutexLock lock(mFdMutex);
        for (int i = 0; i < MAX_CLIENT_NUM; ++i) {
            if (mClients[i] != nullptr) {
                mClients[i]->HangUp();
                mClients[i].reset();
            }
            mClientFds[i] = -1;
        }
        if (mDevice != nullptr) {
            mDevice->HangUp();
            mDevice.reset();
        }
        int fd = mServerFd;
        DisConnect(fd);
        mServerFd = fd;
    }
    KLOG(kLogDebug) << GetName() << " >> disconnect.";
}

void Processor::ReConnect() {
    DisConnect();
    const int fd = Open();
    KLOG(kLogDebug) << GetName() << " << reconnect << fd:" << fd;
    FD_ZERO(&mReadFds);
    FdSetInsert(fd, mReadFds);
    mRecvBuffer.Clear();
}

bool Processor::IsConnect() {
    return mServerFd != -1;
}

int Processor::ConnectByApp() {
    MutexLock life(mLifeMutex);
    if (mServerFd != -1) {
        return mServerFd;
    }
    const int fd = Open();
    KLOG(kLogDebug) << GetName() << " << connect by app << fd:" << fd;
    mRecvThread->Nudge();
    return fd;
}

void Processor::DisConnectByApp() {
    MutexLock life(mLifeMutex);
    DisConnect();
    // The kernel keeps a closed descriptor alive, and its address taken, for as long as a select
    // waits on it.
    const uint64_t round = mSelectRound;
    mRecvThread->Nudge();
    for (int i = 0; i < kLetGoTries && round % 2 == 1 && mSelectRound == round; ++i) {
        Thread::SleepMs(kLetGoPauseMs);
    }
}

bool Processor::AddClient(int fd) {
    MutexLock lock(mFdMutex);
    const auto slot = std::find(mClientFds.begin(), mClientFds.end(), -1);
    if (slot == mClientFds.end()) {
        return false;
    }
    *slot = fd;
    mClients[slot - mClientFds.begin()] = std::make_shared<ClientDescriptor>(UniqueFd(fd));
    return true;
}

void Processor::RemoveClient(int fd) {
    MutexLock lock(mFdMutex);
    for (int i = 0; i < MAX_CLIENT_NUM; ++i) {
        if (mClientFds[i] == fd) {
            mClientFds[i] = -1;
            mClients[i].reset();
        }
    }
}

std::shared_ptr<ClientDescriptor> Processor::FindClient(int fd) {
    if (mMode == DEVICE_MODE) {
        return fd == mServerFd ? mDevice : nullptr;
    }
    const auto slot = std::find(mClientFds.begin(), mClientFds.end(), fd);
    return slot != mClientFds.end() ? mClients[slot - mClientFds.begin()] : nullptr;
}

int Processor::GetMaxFd() {
    MutexLock lock(mFdMutex);
    return std::max(mServerFd.load(), *std::max_element(mClientFds.begin(), mClientFds.end()));
}

// 1 when there is nothing to accept; else 0 with the new descriptor, or with -1 and errno.
int Processor::AcceptOne(fd_set& ready, int& fd) {
    MutexLock lock(mFdMutex);
    if (mServerFd == -1 || !FdSetContains(mServerFd, ready)) {
        return 1;
    }
    fd = accept4(mServerFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    return 0;
}

int Processor::AcceptClient(fd_set& ready) {
    int fd = -1;
    if (AcceptOne(ready, fd) != 0) {
        return 1;
    }
    if (!FdFitsSet(fd)) {
        const int error = fd < 0 ? errno : EMFILE;
        if (fd >= 0) {
            close(fd);
        }
        OnAcceptFailure(error);
        return 1;
    }
    if (!AddClient(fd)) {
        KLOG(kLogError) << GetName() << "-->"
                        << "Receive the max client number[4]. reject now";
        ClientDescriptor(UniqueFd(fd)).HangUp();
        return 2;
    }
    KLOG(kLogInfo) << GetName() << "-->"
                   << "connect to new client socket[" << fd << "]";
    FdSetInsert(fd, mReadFds);
    return 0;
}

void Processor::OnAcceptFailure(int error) {
    // A client that was gone before it was accepted, or a wake-up that brought none.
    if (error == EAGAIN || error == ECONNABORTED || error == EINTR) {
        return;
    }
    const int64_t now = MonotonicMs();
    if (mAcceptFailureLoggedMs == 0 || now - mAcceptFailureLoggedMs >= kAcceptLogPauseMs) {
        mAcceptFailureLoggedMs = now;
        KLOG(kLogError) << GetName() << "-->"
                        << "accept error: " << error;
    }
    // The connection stays in the backlog and keeps the listening socket readable; without a pause
    // the loop would spin until descriptors return.
    Thread::SleepMs(kAcceptPauseMs);
}

}  // namespace kelp
