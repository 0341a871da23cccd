// The send thread of a console: writes answers, completes commands.

#include <errno.h>
#include <poll.h>
#include <termios.h>

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
    if (!mSendRunning) {
        // Stop has cleared the flag but not yet marked the thread, which calls again until then.
        Thread::SleepMs(kRetryPauseMs);
        return;
    }
    while (mSendRunning) {
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
    if (WriteBuffer(fd, command.mResponse.data(), static_cast<int>(command.mResponse.size())) >=
        0) {
        return;
    }
    if (mMode == DEVICE_MODE) {
        // The rest of a broken answer is useless, and would block the close of the line until the
        // host reads it.
        tcflush(fd, TCOFLUSH);
    } else if (client != nullptr) {
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
    int64_t stalledSinceMs = -1;
    bool wasReady = false;
    while (written < length) {
        const ssize_t n = write(fd, data + written, static_cast<size_t>(length - written));
        int error = n < 0 ? errno : 0;
        if (n > 0) {
            written += static_cast<int>(n);
            stalledSinceMs = -1;
            wasReady = false;
            continue;
        }
        if (error == EAGAIN || error == 0) {
            error = WaitWritable(fd, stalledSinceMs, wasReady);
            wasReady = true;
        } else if (error == EINTR) {
            error = Thread::SleepMs(kRetryPauseMs) ? 0 : ECANCELED;
        }
        if (error != 0) {
            KLOG(kLogError) << GetName() << "-->"
                            << "Write Error! errno->" << error;
            return -1;
        }
    }
    return written;
}

// 0 when the next write may be tried, else the error.
int Processor::WaitWritable(int fd, int64_t& stalledSinceMs, bool wasReady) {
    const int64_t now = MonotonicMs();
    if (stalledSinceMs < 0) {
        stalledSinceMs = now;
    }
    const int64_t left = stalledSinceMs + mWriteStallMs - now;
    if (left <= 0) {
        return ETIMEDOUT;
    }
    // A tty may report that it is writable and still take nothing.
    if (wasReady && !Thread::SleepMs(kRetryPauseMs)) {
        return ECANCELED;
    }
    switch (Thread::WaitFd(fd, POLLOUT, static_cast<int>(left))) {
        case WaitResult::kReady:
            return 0;
        case WaitResult::kTimeOut:
            return ETIMEDOUT;
        case WaitResult::kStopped:
            break;
    }
    return ECANCELED;
}

}  // namespace kelp
