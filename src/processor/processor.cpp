// Start, stop and connections of a console. The receive thread is in processor_receive.cpp, the
// send thread in processor_send.cpp.

#include "processor/processor.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "config/configmanager.h"
#include "platform/clock.h"
#include "platform/fdset.h"
#include "platform/log.h"
#include "processor/clienthandle.h"
#include "processor/command.h"

namespace kelp {

namespace {

constexpr int kAcceptPauseMs = 50;
constexpr int kAcceptLogPauseMs = 10000;

}  // namespace

Processor::Processor(ConfigManager* configManager, MessagerManager* messagerManager,
                     ProcessorModeE mode)
    : mConfigManager(configManager),
      mMessagerManager(messagerManager),
      mMode(mode),
      mReadBuf(new char[READ_BUF_SIZE]),
      mSendRunnable(new SendRunnable(this)),
      mRecvRunnable(new ReceiveRunnable(this)),
      mSendThread(new Thread(mSendRunnable.get())),
      mRecvThread(new Thread(mRecvRunnable.get())) {
    mRecvCmdQueue.mWaitable = false;
}

const std::string& Processor::GetName() const {
    return mConsoleConfig->name;
}

int Processor::Start() {
    const TurnHolder life(mLife, true, !mSendThread->IsCurrent());
    if (!life.Held()) {
        return -1;
    }
    if (mRecvRunning) {
        return 0;  // perhaps without a descriptor: the receive thread may be reopening it
    }
    mReceiveConfig = mConfigManager->GetReceiveConfig();
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
    mSendThread->Stop();
    mRecvThread->Stop();
    mRecvRunning = false;
    mSendRunning = false;
    // First: no newcomer is accepted while DisConnect reads out the clients.
    CloseServer();
    DisConnect();
}

void Processor::Stop() {
    {
        // Another console's send thread waits also after it has stopped that console.
        const TurnHolder life(mLife, true, !mSendThread->IsCurrent());
        if (!life.Held()) {
            // The console's own send thread, and another Stop waits for it.
            return;
        }
        EndThreads();
    }
    // Without the turn: completing a command may start or stop a console, this one included.
    DropAnswers();
}

// Connects; on a device console also sets the handle: `device` reopened, or a new one.
int Processor::Open(const std::shared_ptr<ClientHandle>& device) {
    int fd = Connect();
    const bool isNew = fd == -1 || fd != mServerFd;
    if (mMode == DEVICE_MODE && isNew && !ServeDevice(fd, device) && device != nullptr) {
        device->Close(0);
    }
    mServerFd = fd;
    return fd;
}

// False when there is nothing to serve; `fd` is then -1, unless it is not a character device.
bool Processor::ServeDevice(int& fd, const std::shared_ptr<ClientHandle>& device) {
    struct stat status = {};
    if (fd == -1 || fstat(fd, &status) != 0) {
        return false;
    }
    if (!S_ISCHR(status.st_mode)) {
        // Answers written to a file would be read back as commands, without end.
        KLOG_AS("Connect", kLogError) << GetName() << "-->route is not a character device";
        return false;
    }
    // A duplicate, so that the line is closed only after a write in progress.
    UniqueFd duplicate(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!duplicate.Ok()) {
        KLOG_AS("Connect", kLogError) << GetName() << "-->no second descriptor, errno = " << errno;
        DisConnect(fd);
        return false;
    }
    if (device == nullptr) {
        return mSlots.Add(std::make_shared<ClientHandle>(std::move(duplicate), fd));
    }
    device->Reopen(std::move(duplicate), fd);
    return mSlots.Add(device);
}

void Processor::CloseServer() {
    int fd = mServerFd;
    DisConnect(fd);
    mServerFd = fd;
}

void Processor::DisConnect() {
    mSlots.CloseAll();
    CloseServer();
    KLOG(kLogDebug) << GetName() << " >> disconnect.";
}

void Processor::ReConnect() {
    const auto device = TakeDevice();
    DisConnect();
    const int fd = Open(device);
    KLOG(kLogDebug) << GetName() << " << reconnect << fd:" << fd;
    FD_ZERO(&mReadFds);
    WatchServer();
    mRecvBuffer.Clear();
}

// The handle of a device outlives its descriptors while the console runs: later answers go to the
// reopened device.
std::shared_ptr<ClientHandle> Processor::TakeDevice() {
    auto device = mMode == DEVICE_MODE ? mSlots.Take(mServerFd) : nullptr;
    if (device != nullptr) {
        device->CloseDescriptor();
    }
    return device;
}

bool Processor::IsConnect() {
    return mServerFd != -1;
}

int Processor::ConnectByApp() {
    const TurnHolder life(mLife);
    if (mServerFd != -1) {
        return mServerFd;
    }
    const int fd = Open();
    KLOG(kLogDebug) << GetName() << " << connect by app << fd:" << fd;
    return fd;
}

void Processor::DisConnectByApp() {
    const TurnHolder life(mLife);
    DisConnect();
}

bool Processor::AddClient(int fd) {
    return !mSlots.Full() && mSlots.Add(std::make_shared<ClientHandle>(UniqueFd(fd), fd));
}

void Processor::RemoveClient(int fd) {
    mSlots.Remove(fd);
}

int Processor::GetMaxFd() {
    const auto numbers = mSlots.Numbers();
    return std::max(mServerFd.load(), *std::max_element(numbers.begin(), numbers.end()));
}

int Processor::AcceptClient(fd_set& ready) {
    if (mServerFd == -1 || !FdSetContains(mServerFd, ready)) {
        return 1;
    }
    if (mSlots.Full()) {
        ReadOutLeavers();
    }
    UniqueFd fd(accept4(mServerFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!FdFitsSet(fd.Get())) {
        OnAcceptFailure(fd.Ok() ? EMFILE : errno);
        return 1;
    }
    // Urgent data stays in line: FIONREAD would count bytes that read does not return.
    const int on = 1;
    setsockopt(fd.Get(), SOL_SOCKET, SO_OOBINLINE, &on, sizeof(on));
    const int number = fd.Release();  // owned by the slot, or by the rejected handle
    if (!AddClient(number)) {
        KLOG(kLogError) << GetName() << "-->"
                        << "Receive the max client number[" << MAX_CLIENT_NUM << "]. reject now";
        ClientHandle(UniqueFd(number), number).Close(0);
        return 2;
    }
    KLOG(kLogInfo) << GetName() << "-->"
                   << "connect to new client socket[" << number << "]";
    FdSetInsert(number, mReadFds);
    return 0;
}

void Processor::OnAcceptFailure(int error) {
    // The client left before it was accepted, or a spurious wake-up.
    if (error == EAGAIN || error == ECONNABORTED || error == EINTR) {
        return;
    }
    const int64_t now = MonotonicMs();
    if (mAcceptFailureLoggedMs == 0 || now - mAcceptFailureLoggedMs >= kAcceptLogPauseMs) {
        mAcceptFailureLoggedMs = now;
        KLOG(kLogError) << GetName() << "-->"
                        << "accept error: " << error;
    }
    // The connection stays in the backlog and keeps the listening socket readable: pause, or the
    // loop spins until descriptors are free.
    Thread::SleepMs(kAcceptPauseMs);
}

}  // namespace kelp
