#include "messager/modemmessager.h"

#include "main/errorcode.h"
#include "platform/log.h"
#include "processor/clienthandle.h"
#include "processor/command.h"

namespace kelp {

namespace {

constexpr int kMaxRetries = 20;
constexpr int kRetryPauseMs = 1000;
// Results of an exchange that mean a lost connection.
constexpr int kResultLost = 1;
constexpr int kResultInterrupted = 4;

// Retries left; shared by all modem modules.
std::atomic<int> sConnectCount{kMaxRetries};

}  // namespace

Messager* ModemMessager::Create(MessagerManager* manager, std::string name) {
    return new ModemMessager(manager, name);
}

ModemMessager::ModemMessager(MessagerManager* manager, const std::string& name)
    : Messager(manager, name, LocalSocketClient::Reopen::kOnReceive),
      mRunnable(new ModemMsgRunnable(this)),
      mThread(new Thread(mRunnable.get(), name)) {
    mThread->Start();
}

ModemMessager::~ModemMessager() {
    mRunning = false;
    mThread->Stop();
}

void ModemMessager::ConnectOnce() {
    TurnHolder turn(mConnecting);
    if (turn.Held() && mFd == -1) {
        mFd = Connect();
    }
}

bool ModemMessager::TryConnect() {
    while (mFd == -1) {
        ConnectOnce();
        if (!Thread::SleepMs(kRetryPauseMs) || sConnectCount.fetch_sub(1) == 0) {
            break;
        }
    }
    sConnectCount = kMaxRetries;
    if (mFd != -1) {
        return true;
    }
    KLOG(kLogError) << "reach max count(20). Connect fail.";
    return false;
}

void ModemMessager::Run() {
    while (mRunning) {
        if (!TryConnect()) {
            KLOG(kLogError) << "Connect Fail. Exit!!!";
            mRunning = false;
        }
        auto command = std::make_unique<Command>();
        const int result = Receive(command.get(), mFd, 0);
        if (result == kResultInterrupted || result == kResultLost) {
            command.reset();
            int fd = mFd;
            Disconnect(fd);
            // mFd stays: the client reopens the connection by itself.
            KLOG(kLogError) << "disconnect ,retry:" << fd;
        } else {
            Relay(std::move(command));
        }
    }
    int fd = mFd;
    Disconnect(fd);
    // Given up, or destroyed: the thread ends here.
    mThread->Stop();
}

void ModemMessager::Relay(std::unique_ptr<Command> command) {
    Last last;
    {
        MutexLock lock(mLastMutex);
        last = mLast;
    }
    command->mClientFd = last.clientFd;
    command->mClient = last.client;
    Command* const handed = command.release();  // the console's, unless it is refused
    if (SendMessager(handed, last.processor) != kSuccess) {
        delete handed;
    }
}

unsigned ModemMessager::HandleMessager(Command* command, void* processor) {
    if (command == nullptr) {
        KLOG(kLogError) << "input command is null";
        return kErrorInvalidParameter;
    }
    const std::unique_ptr<Command> owned(command);
    KLOG(kLogDebug) << " <<<<<<<";
    ConnectOnce();
    {
        // The client is kept open for what the daemon will say, even when it has half-closed; once
        // the module has given up there will be nothing.
        Last last = {processor, command->mClientFd, mRunning ? command->mClient : nullptr};
        MutexLock lock(mLastMutex);
        std::swap(mLast, last);
    }
    std::vector<char>& request = *command->GetRequest();
    request.push_back('\r');
    request.push_back('\n');
    DUMPLOG(kLogTag, "HandleMessager", request.data(), request.size());
    Send(command);
    KLOG(kLogDebug) << " >>>>>>>";
    return kSuccess;
}

}  // namespace kelp
