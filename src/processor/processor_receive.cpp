// The receive thread of a console: select, read, cut into commands, route.

#include <errno.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "messager/messagermanager.h"
#include "platform/clock.h"
#include "platform/errortext.h"
#include "platform/fdset.h"
#include "platform/log.h"
#include "processor/clienthandle.h"
#include "processor/command.h"
#include "processor/processor.h"

namespace kelp {

namespace {

constexpr int kRetryPauseMs = 10;
// Pause between retries on a failing device, so that the loop does not spin.
constexpr int kDevicePauseMs = 100;
// A read ends after this many empty attempts in a row: another reader took the bytes that FIONREAD
// counted.
constexpr int kMaxEmptyReads = 100;
constexpr size_t kMaxUnframedBytes = 16u << 20;

void Append(std::vector<char>& to, const char* text) {
    to.insert(to.end(), text, text + strlen(text));
}

}  // namespace

void Processor::ReceiveCmd() {
    FD_ZERO(&mReadFds);
    WatchServer();
    mRecvBuffer.Clear();
    mCurrentClient.reset();
    mQuietDeadlineMs = -1;
    while (mRecvRunning && !Thread::StopRequested()) {
        ReceiveOnce();
    }
}

void Processor::WatchServer() {
    // An unserved device has no handle: do not watch it. With -1, after a failed reconnection,
    // FdSetInsert aborts the process.
    if (mMode == SERVER_MODE || mServerFd == -1 || mSlots.Find(mServerFd) != nullptr) {
        FdSetInsert(mServerFd, mReadFds);
    }
}

void Processor::ReceiveOnce() {
    fd_set ready = mReadFds;
    const int wakeFd = Thread::WakeFd();
    FdSetInsert(wakeFd, ready);
    struct timeval tick = {};
    if (mQuietDeadlineMs >= 0) {
        const int64_t left = std::max<int64_t>(mQuietDeadlineMs - MonotonicMs(), 0);
        tick.tv_sec = static_cast<time_t>(left / 1000);
        tick.tv_usec = static_cast<suseconds_t>(left % 1000 * 1000);
    }
    const int count = select(std::max(GetMaxFd(), wakeFd) + 1, &ready, nullptr, nullptr,
                             mQuietDeadlineMs >= 0 ? &tick : nullptr);
    if (Thread::StopRequested()) {
        return;
    }
    if (count < 0) {
        if (errno != EINTR) {
            OnSelectFailure(errno);
        }
        return;
    }
    const bool due = mQuietDeadlineMs >= 0 && MonotonicMs() >= mQuietDeadlineMs;
    if (due) {
        mQuietDeadlineMs = -1;
    }
    if (count > 0) {
        OnReadable(ready);
    }
    // Bytes that were there already belong to the command: a read has set a new deadline.
    if (due && mQuietDeadlineMs < 0) {
        ProcessCmdData();
    }
}

void Processor::OnSelectFailure(int error) {
    // Limits the rate of the loop and of this record.
    Thread::SleepMs(kRetryPauseMs);
    KLOG_AS("ReceiveCmd", kLogError) << GetName() << "-->Fail to monitor, errno = " << error;
    if (IsConnect()) {
        FdSetRemove(mServerFd, mReadFds);
        // Not watched again on purpose: until the console is switched off and on, a tty is not
        // read, and a listening console accepts no client.
        const auto device = TakeDevice();
        CloseServer();
        Open(device);
    }
    mRecvBuffer.Clear();
}

void Processor::OnReadable(fd_set& ready) {
    if (mMode == DEVICE_MODE) {
        ReceiveFrom(mServerFd);
        return;
    }
    for (const int fd : mSlots.Numbers()) {
        if (fd != -1 && FdSetContains(fd, ready)) {
            ReceiveFrom(fd);
        }
    }
    // Last: a client that it accepts may have the number of one that was ready.
    AcceptClient(ready);
}

// Reads all ready clients, and those that have left until end of file, which frees their slots: a
// station that reconnects for each command can be in the backlog before the end of its last
// connection was seen.
void Processor::ReadOutLeavers() {
    for (const int fd : mSlots.Numbers()) {
        struct pollfd client = {fd, POLLIN | POLLRDHUP, POLLRDHUP};
        // Bounded: a client that has left sends no more.
        while ((client.revents & POLLRDHUP) != 0 && FdSetContains(fd, mReadFds) &&
               !Thread::StopRequested() && poll(&client, 1, 0) > 0) {
            ReceiveFrom(fd);
        }
    }
}

void Processor::ReceiveFrom(int fd) {
    const int result = ReceiveCmdData(fd);
    const bool drops = result >= 1 && ThrowException(result, fd);
    if (result >= 1 && mMode == DEVICE_MODE) {
        Thread::SleepMs(kDevicePauseMs);
    }
    if (drops) {
        mRecvBuffer.Clear();
        return;
    }
    ApplyFraming();
}

void Processor::ApplyFraming() {
    if (mReceiveConfig->mode == kReceiveTail) {
        ProcessCmdData();
    } else if (mReceiveConfig->mode == kReceiveTimeTick) {
        mQuietDeadlineMs = MonotonicMs() + std::max(mReceiveConfig->millisecond, 0);
    }
    if (mRecvBuffer.Size() > kMaxUnframedBytes) {
        KLOG(kLogError) << GetName() << "-->" << mRecvBuffer.Size() << " unframed bytes dropped";
        mRecvBuffer.Clear();
    }
}

int Processor::ReceiveCmdData(int fd) {
    mCurrentClient.reset();
    if (fd == -1) {
        return kErrorInvalidDescriptor;
    }
    std::shared_ptr<ClientHandle> client = mSlots.Find(fd);
    if (client == nullptr) {
        return EBADF;
    }
    const ClientHandle::Hold hold = client->Acquire();
    if (hold == nullptr) {
        return EIO;  // hung up by the send thread; its further bytes are not read
    }
    int pending = 0;
    if (ioctl(hold->Get(), FIONREAD, &pending) < 0) {
        return errno;
    }
    KLOG(kLogDebug) << GetName() << "-->" << pending << " charactor(s) received. error->" << errno;
    if (pending == 0) {
        return EIO;
    }
    if (ReadBuffer(hold->Get(), std::min(pending, READ_BUF_SIZE)) < 0) {
        return kErrorNormal;
    }
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
    int emptyReads = 0;
    while (got < count && emptyReads < kMaxEmptyReads) {
        const ssize_t n = read(fd, mReadBuf.get() + got, static_cast<size_t>(count - got));
        if (n > 0) {
            got += static_cast<int>(n);
            emptyReads = 0;
            continue;
        }
        if (n < 0 && errno != EINTR && errno != EAGAIN) {
            KLOG(kLogError) << GetName() << "--> Read Error!";
            mRecvBuffer.Clear();
            return -1;
        }
        ++emptyReads;
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

int Processor::FlushBuffer() {
    if (mRecvBuffer.Size() < static_cast<size_t>(std::max(mReceiveConfig->tailLength, 0))) {
        return 0;
    }
    MutexLock lock(mBufferMutex);
    if (mReceiveConfig->mode == kReceiveTimeTick) {
        // The bytes stay: the next command of this mode begins with them again, until a failure
        // clears the buffer. Stations rely on it.
        EnqueueCommand(mRecvBuffer.View());
        mCurrentClient.reset();
    } else if (mReceiveConfig->mode == kReceiveTail && mReceiveConfig->tailLength >= 1) {
        CutLines();
    }
    return 0;
}

void Processor::CutLines() {
    const std::string_view tail(reinterpret_cast<const char*>(mReceiveConfig->tail),
                                static_cast<size_t>(mReceiveConfig->tailLength));
    std::string_view line;
    while (mRecvBuffer.CutLine(tail, line)) {
        EnqueueCommand(line.substr(0, line.size() - tail.size()));
        DUMPLOG_AS("FlushBuffer", kLogTag, "Command <<<<<<<", line.data(), line.size());
        DUMPLOG_AS("FlushBuffer", kLogTag, "RESTBUFF", mRecvBuffer.View().data(),
                   mRecvBuffer.Size());
    }
}

void Processor::EnqueueCommand(std::string_view request) {
    auto* command = new Command(mCurrentClient);
    command->GetRequest()->assign(request.begin(), request.end());
    mRecvCmdQueue.enqueue(command);
}

void Processor::ProcessCmdData() {
    FlushBuffer();
    while (Command* command = mRecvCmdQueue.dequeue()) {
        mSendCmdQueue.WaitForRoom();
        ProcessCmdData(command);
    }
}

void Processor::ProcessCmdData(Command* command) {
    const unsigned result = mMessagerManager->HandleRequest(command, this);
    if (result != kErrorUnsupportCommand && result != kErrorRequestNull) {
        return;  // the module owns it
    }
    ErrorBuffer text;
    GetStringByErrCode(static_cast<int>(result), kErrorBase, text);
    std::vector<char>& response = *command->GetResponse();
    const std::vector<char>& request = *command->GetRequest();
    response.insert(response.end(), request.begin(), request.end());
    Append(response, "\r\n");
    Append(response, text);
    Append(response, "\r\nERROR\r\n");
    mSendCmdQueue.enqueue(command);
}

}  // namespace kelp
