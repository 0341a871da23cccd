// The send thread of a console: writes answers, completes commands.

#include <errno.h>
#include <poll.h>

#include "messager/messagermanager.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "processor/clienthandle.h"
#include "processor/command.h"
#include "processor/processor.h"

namespace kelp {

namespace {

constexpr int kRetryPauseMs = 10;

}  // namespace

void Processor::SendDataDone(Command* command) {
    if (command == nullptr) {
        KLOG(kLogError) << GetName() << "-->data is null";
        return;
    }
    if (!mSendRunning && command->mMessager == nullptr) {
        // Switched off, and no module waits for completion: a peer that keeps sending must not fill
        // a queue that nobody empties.
        delete command;
        return;
    }
    const int64_t dropped = mSendCmdQueue.enqueue(command);
    if (dropped > 0) {
        KLOG(kLogError) << GetName() << "-->client does not read, " << dropped
                        << " unsolicited messages dropped";
    }
}

void Processor::SendCmd() {
    while (mSendRunning && !Thread::StopRequested()) {
        const std::unique_ptr<Command> command(mSendCmdQueue.dequeue());
        if (command == nullptr) {
            KLOG(kLogError) << " mSendCmdQueue.dequeued nothing!!!!!!!!!!";
            return;
        }
        if (command->mClientFd != -1) {
            Answer(*command);
            DUMPLOG(kLogTag, "Response <<<<<<<", command->mResponse.data(),
                    command->mResponse.size());
        }
        Complete(*command);
    }
}

// Writes the answer; writes nothing to a client that is gone.
void Processor::Answer(const Command& command) {
    ClientHandle* const client = command.mClient.get();
    ClientHandle::Hold hold;
    while (client != nullptr && (hold = client->Acquire()) == nullptr) {
        // Not gone: the device is being reopened, or the process is about to end.
        if (client->Gone() || !Thread::SleepMs(kRetryPauseMs)) {
            return;
        }
    }
    const int fd = hold != nullptr ? hold->Get() : command.mClientFd;
    const int size = static_cast<int>(command.mResponse.size());
    if (WriteBuffer(fd, command.mResponse.data(), size) < 0 && mMode == SERVER_MODE &&
        client != nullptr) {
        // A client that does not read must not delay the others again and again.
        client->HangUp();
    }
}

void Processor::Complete(Command& command) {
    mSendCmdQueue.Done(command);
    mMessagerManager->HandleComplete(&command);
}

// Answers still queued when the console is off: nobody can read them, but a module that waits for
// completion is told.
void Processor::DropAnswers() {
    while (Command* command = mSendCmdQueue.poll()) {
        const std::unique_ptr<Command> owned(command);
        Complete(*command);
    }
}

int Processor::WriteBuffer(int fd, const char* data, int length) {
    if (fd < 0) {
        KLOG(kLogError) << GetName() << "-->"
                        << "Error FD!!!";
        return -1;
    }
    if (length < 1) {
        return 0;
    }
    int written = 0;
    int64_t deadlineMs = 0;  // while the other end takes nothing, else 0
    while (written < length) {
        const ssize_t n = write(fd, data + written, static_cast<size_t>(length - written));
        if (n > 0) {
            written += static_cast<int>(n);
            deadlineMs = 0;
            continue;
        }
        const bool retry = n == 0 || errno == EAGAIN || errno == EINTR;
        const int error = retry ? WaitWritable(fd, deadlineMs) : errno;
        if (error != 0) {
            KLOG(kLogError) << GetName() << "-->"
                            << "Write Error! errno->" << error;
            mWriteFailed = true;
            return -1;
        }
    }
    mWriteFailed = false;
    return written;
}

// 0 when the next write may be tried, else the error.
int Processor::WaitWritable(int fd, int64_t& deadlineMs) {
    if (deadlineMs == 0) {
        deadlineMs = MonotonicMs() + mWriteStallMs;
    } else if (!Thread::SleepMs(kRetryPauseMs)) {
        // Paced: a tty may report that it is writable and still take nothing.
        return ECANCELED;
    }
    const int64_t left = deadlineMs - MonotonicMs();
    const WaitResult result =
        left > 0 ? Thread::WaitFd(fd, POLLOUT, static_cast<int>(left)) : WaitResult::kTimeOut;
    if (result == WaitResult::kReady) {
        return 0;
    }
    return result == WaitResult::kTimeOut ? ETIMEDOUT : ECANCELED;
}

}  // namespace kelp
