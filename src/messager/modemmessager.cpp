#include "messager/modemmessager.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <utility>

#include "main/errorcode.h"
#include "messager/peeranswer.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "processor/clienthandle.h"
#include "processor/command.h"

namespace kelp {

namespace {

constexpr int kMaxRetries = 20;
constexpr int kRetryPauseMs = 1000;
constexpr size_t kMaxMessageBytes = 256u << 10;  // the rest becomes the next message

// Retries left; shared by all modem modules.
std::atomic<int> sConnectCount{kMaxRetries};

}  // namespace

Messager* ModemMessager::Create(MessagerManager* manager, std::string name) {
    return new ModemMessager(manager, name);
}

ModemMessager::ModemMessager(MessagerManager* manager, const std::string& name)
    : Messager(manager, name),
      mConnection(std::move(mClient)),
      mOpened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mRunnable(new ModemMsgRunnable(this)),
      mThread(new Thread(mRunnable.get(), name)) {
    if (mFd != -1) {
        MutexLock lock(mMutex);
        mToRead.push_back(mConnection);
    }
    mThread->Start();
}

ModemMessager::~ModemMessager() {
    mRunning = false;
    mThread->Stop();
}

ModemMessager::Connection ModemMessager::Current() {
    MutexLock lock(mMutex);
    return mConnection;
}

// True when there is a connection, opened now if needed. The caller holds the PeerTurn, so there is
// one attempt at a time.
bool ModemMessager::Open() {
    if (Current()->Descriptor() != -1) {
        return true;
    }
    auto opened = std::make_shared<LocalSocketClient>(mSocketPath);
    const int fd = opened->sopen();
    if (fd == -1) {
        return false;
    }
    {
        MutexLock lock(mMutex);
        mConnection = std::move(opened);
        if (mRunning) {
            mToRead.push_back(mConnection);
        }
    }
    mFd = fd;  // after mToRead, where the module's thread then expects the connection
    eventfd_write(mOpened.Get(), 1);
    return true;
}

ModemMessager::Connection ModemMessager::NextToRead() {
    // Reset before mToRead is read: a connection that is opened later sets it again.
    eventfd_t opened;
    eventfd_read(mOpened.Get(), &opened);
    MutexLock lock(mMutex);
    if (mToRead.empty()) {
        return nullptr;
    }
    Connection next = std::move(mToRead.front());
    mToRead.pop_front();
    return next;
}

// Any thread; a thread that waits on the connection sees end of file.
void ModemMessager::Drop(const Connection& lost) {
    lost->Shutdown();
    auto none = std::make_shared<LocalSocketClient>(mSocketPath);
    MutexLock lock(mMutex);
    if (mConnection == lost) {
        mConnection = std::move(none);
    }
}

bool ModemMessager::TryConnect() {
    while (mFd == -1) {
        {
            const PeerTurn turn(this);
            if (turn.Held()) {
                Open();
            }
        }
        if (!Thread::SleepMs(kRetryPauseMs) || sConnectCount.fetch_sub(1) == 0) {
            break;
        }
    }
    sConnectCount = kMaxRetries;
    if (mFd != -1) {
        return true;
    }
    if (mRunning) {
        KLOG(kLogError) << "reach max count(20). Connect fail.";
    }
    return false;
}

void ModemMessager::Run() {
    Connection reading;
    while (mRunning) {
        if (!TryConnect() && mRunning.exchange(false)) {
            KLOG(kLogError) << "Connect Fail. Exit!!!";
        }
        if (reading == nullptr && (reading = NextToRead()) == nullptr) {
            reading = Current();
        }
        auto command = std::make_unique<Command>();
        std::vector<char>& message = *command->GetResponse();
        bool whole;
        const LocalResult result =
            ReceiveAnswer(*reading, message, 0, {0, kMaxMessageBytes}, whole);
        if (Thread::StopRequested()) {
            break;
        }
        if (result != LocalResult::kDone) {
            ReportReceiveError(ToErrorCode(result), &message);
        }
        if (result == LocalResult::kLost || (result == LocalResult::kClosed && mFd != -1)) {
            Drop(reading);
            reading.reset();
            // mFd is kept.
            KLOG(kLogError) << "disconnect ,retry:" << mFd.load();
            reading = AwaitConnection();
        } else {
            Relay(std::move(command));
        }
    }
    Drop(Current());
    // Given up or destroyed: end this thread.
    mThread->Stop();
}

// The next connection: opened by a request meanwhile, or by this thread, at most one attempt per
// second, so that the caller's loop never spins. Null when the thread is told to stop.
ModemMessager::Connection ModemMessager::AwaitConnection() {
    while (!Thread::StopRequested()) {
        Connection next = NextToRead();
        if (next != nullptr) {
            return next;
        }
        const int64_t now = MonotonicMs();
        if (now < mNextTryMs) {
            Thread::WaitFd(mOpened.Get(), POLLIN, static_cast<int>(mNextTryMs - now));
            continue;
        }
        mNextTryMs = now + kRetryPauseMs;
        const PeerTurn turn(this);
        if (turn.Held()) {
            Open();
        }
    }
    return nullptr;
}

void ModemMessager::Relay(std::unique_ptr<Command> command) {
    Last last;
    {
        MutexLock lock(mMutex);
        last = mLast;
    }
    command->mClientFd = last.client != nullptr ? last.client->Number() : -1;
    command->mClient = std::move(last.client);
    Command* const handed = command.release();  // the console owns it, unless refused
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
    // Held until the request is written: the client stored last also wrote last.
    const PeerTurn turn(this);
    if (turn.Held()) {
        Remember(processor, *command);
        std::vector<char>& request = *command->GetRequest();
        request.push_back('\r');
        request.push_back('\n');
        DUMPLOG(kLogTag, "HandleMessager", request.data(), request.size());
        Write(*command);
    }
    KLOG(kLogDebug) << " >>>>>>>";
    return kSuccess;
}

void ModemMessager::Remember(void* processor, const Command& command) {
    // Keep the handle for later messages, even after the client has half-closed: the number alone
    // could be reused by another client. A module that has given up relays no more messages.
    Last last = {processor, mRunning ? command.mClient : nullptr};
    MutexLock lock(mMutex);
    std::swap(mLast, last);
}

void ModemMessager::Write(Command& command) {
    const std::vector<char>& request = *command.GetRequest();
    if (mFd == -1) {
        KLOG_AS("Send", kLogDebug) << mModuleName << " socket pause. connect now";
    }
    Connection connection = Current();
    // Once given up, nobody reads: a daemon that cannot send would not read either.
    LocalResult result = mRunning ? LocalResult::kDone : DropStaleBytes(*connection);
    if (result == LocalResult::kDone) {
        result = connection->ssend(request);
    }
    if (result == LocalResult::kLost) {
        Drop(connection);
    }
    if ((result == LocalResult::kLost || result == LocalResult::kClosed) && Open()) {
        connection = Current();
        result = connection->ssend(request);
    }
    if (result == LocalResult::kCut) {
        Drop(connection);
    }
    if (result != LocalResult::kDone) {
        KLOG_AS("Send", kLogError) << mModuleName << "-->request not sent";
    }
}

}  // namespace kelp
