// Framing of what a console received, and the way of the answers back to its clients.

#include <errno.h>
#include <poll.h>
#include <termios.h>

#include <climits>
#include <cstring>
#include <iterator>

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "messager/messagermanager.h"
#include "platform/clock.h"
#include "platform/errortext.h"
#include "platform/log.h"
#include "processor/clientdescriptor.h"
#include "processor/processor.h"

namespace kelp {

namespace {

constexpr int kRetryPauseMs = 10;
// What may wait to be written before the console stops taking commands in.
constexpr int64_t kMaxWaitingAnswers = 1024;
constexpr int64_t kMaxWaitingBytes = 4 << 20;
constexpr int kFloodLogPauseMs = 10000;
// Refusals that are held back at most, so that the send thread is not woken for each one of a
// burst.
constexpr int kMaxHeldAnswers = 32;
// Answers are gathered into one write until they reach this.
constexpr size_t kBatchBytes = 16384;

void Append(std::vector<char>& to, const char* text) {
    to.insert(to.end(), text, text + strlen(text));
}

}  // namespace

int Processor::FlushBuffer() {
    if (mRecvBuffer.Size() < static_cast<size_t>(std::max(mReceiveConfig->tailLength, 0))) {
        return 0;
    }
    MutexLock lock(mBufferMutex);
    if (mReceiveConfig->mode == kReceiveTimeTick) {
        // The bytes stay: the next command of this mode begins with them again, until a failure
        // empties the buffer. Stations that use the mode rely on it.
        EnqueueCommand(mRecvBuffer.Size());
        mCurrentFd = -1;
        mCurrentClient.reset();
    } else if (mReceiveConfig->mode == kReceiveTail && mReceiveConfig->tailLength >= 1) {
        CutLines();
    }
    return 0;
}

void Processor::CutLines() {
    const std::string_view tail(reinterpret_cast<const char*>(mReceiveConfig->tail),
                                static_cast<size_t>(mReceiveConfig->tailLength));
    mRecvBuffer.StripLeading(tail);
    for (;;) {
        const size_t length = mRecvBuffer.FindTail(tail);
        if (length == FrameBuffer::kNotFound) {
            return;
        }
        EnqueueCommand(length);
        DUMPLOG_AS("FlushBuffer", kLogTag, "Command <<<<<<<", mRecvBuffer.View().data(),
                   length + tail.size());
        mRecvBuffer.Consume(length + tail.size());
        mRecvBuffer.StripLeading(tail);
        DUMPLOG_AS("FlushBuffer", kLogTag, "RESTBUFF", mRecvBuffer.View().data(),
                   mRecvBuffer.Size());
    }
}

// The first `length` bytes of the buffer become a command of the client that was read last.
void Processor::EnqueueCommand(size_t length) {
    auto* command = new Command(mCurrentFd, mCurrentClient);
    const std::string_view bytes = mRecvBuffer.View().substr(0, length);
    command->GetRequest()->assign(bytes.begin(), bytes.end());
    mRecvCmdQueue.enqueue(command);
}

void Processor::ProcessCmdData() {
    FlushBuffer();
    while (Command* command = mRecvCmdQueue.dequeue()) {
        WaitForRoom();
        ProcessCmdData(command);
    }
    ReleaseAnswers();
}

void Processor::ProcessCmdData(Command* command) {
    const unsigned result = mMessagerManager->HandleRequest(command, this);
    if (result != kErrorUnsupportCommand && result != kErrorRequestNull) {
        return;  // the module has it
    }
    char text[512] = {};
    GetStringByErrCode(static_cast<int>(result), kErrorBase, text);
    std::vector<char>& response = *command->GetResponse();
    const std::vector<char>& request = *command->GetRequest();
    response.insert(response.end(), request.begin(), request.end());
    Append(response, "\r\n");
    Append(response, text);
    Append(response, "\r\nERROR\r\n");
    CountAnswer(*command);
    mSendCmdQueue.append(command);
    if (++mHeldAnswers >= kMaxHeldAnswers) {
        ReleaseAnswers();
    }
}

void Processor::ReleaseAnswers() {
    if (mHeldAnswers > 0) {
        mHeldAnswers = 0;
        mSendCmdQueue.wake();
    }
}

void Processor::SendDataDone(Command* command) {
    if (command == nullptr) {
        KLOG(kLogError) << GetName() << "-->data is null";
        return;
    }
    if (!mSendRunning && command->mMessager == nullptr) {
        // Switched off, and nobody waits for the completion: without this, a peer that goes on
        // talking would fill the queue of a console that nobody empties.
        delete command;
        return;
    }
    if (Congested() && command->GetRequest()->empty()) {
        // Nobody asked for it and nobody reads it: a peer that talks by itself must not fill the
        // memory of the device.
        OnFlood();
        delete command;
        return;
    }
    CountAnswer(*command);
    mSendCmdQueue.enqueue(command);
}

void Processor::CountAnswer(const Command& command) {
    mWaitingAnswers += 1;
    mWaitingBytes += static_cast<int64_t>(command.mResponse.size());
}

bool Processor::Congested() const {
    return mWaitingAnswers > kMaxWaitingAnswers || mWaitingBytes > kMaxWaitingBytes;
}

// Holds the receive thread, and with it the line, until the send thread has caught up.
void Processor::WaitForRoom() {
    if (!Congested()) {
        return;
    }
    ReleaseAnswers();
    MutexLock lock(mRoomMutex);
    while (Congested() && Thread::Wait(mRoom, mRoomMutex)) {
    }
}

void Processor::ReleaseRoom(const Command& command) {
    const auto size = static_cast<int64_t>(command.mResponse.size());
    const int64_t answers = mWaitingAnswers.fetch_sub(1);
    const int64_t bytes = mWaitingBytes.fetch_sub(size);
    // Told by the counters' own values before and after, so that no fall below a limit goes
    // unnoticed while the receive thread raises them again.
    if (answers == kMaxWaitingAnswers + 1 ||
        (bytes > kMaxWaitingBytes && bytes - size <= kMaxWaitingBytes)) {
        MutexLock lock(mRoomMutex);
        mRoom.Broadcast();
    }
}

void Processor::OnFlood() {
    MutexLock lock(mRoomMutex);
    ++mFloodDropped;
    const int64_t now = MonotonicMs();
    if (mFloodLoggedMs == 0 || now - mFloodLoggedMs >= kFloodLogPauseMs) {
        mFloodLoggedMs = now;
        KLOG(kLogError) << GetName() << "-->client does not read, " << mFloodDropped
                        << " unsolicited messages dropped";
        mFloodDropped = 0;
    }
}

void Processor::SendCmd() {
    if (!mSendRunning) {
        // Between the flag and the mark of a Stop; the thread calls again until it is marked.
        Thread::SleepMs(kRetryPauseMs);
        return;
    }
    while (mSendRunning) {
        std::unique_ptr<Command> command(mSendCmdQueue.dequeue());
        if (command == nullptr) {
            KLOG(kLogError) << " mSendCmdQueue.dequeued nothing!!!!!!!!!!";
            return;
        }
        Answer(std::move(command));
    }
}

void Processor::Answer(std::unique_ptr<Command> command) {
    mBatch.push_back(std::move(command));
    GatherAnswers();
    const Command& first = *mBatch.front();
    const std::vector<char>& bytes = mBatch.size() > 1 ? mBatchBytes : first.mResponse;
    ClientDescriptor* const client = first.mClient.get();
    if (first.mClientFd != -1 && (client == nullptr || !client->Gone())) {
        const int fd = client != nullptr ? client->Get() : first.mClientFd;
        const int written = WriteBuffer(fd, bytes.data(), static_cast<int>(bytes.size()));
        if (written < 0 && mMode == SERVER_MODE && client != nullptr) {
            // One client that does not read must not hold up the others again and again. The
            // receive thread sees the end of the stream and frees the slot.
            client->HangUp();
        } else if (written < 0 && mMode == DEVICE_MODE) {
            // The rest of a broken answer is of no use, and would hold up the closing of the line
            // for as long as the host does not take it.
            tcflush(fd, TCOFLUSH);
        }
        for (const auto& answered : mBatch) {
            DUMPLOG_AS("SendCmd", kLogTag, "Response <<<<<<<", answered->mResponse.data(),
                       answered->mResponse.size());
        }
    }
    for (const auto& answered : mBatch) {
        ReleaseRoom(*answered);
        mMessagerManager->HandleComplete(answered.get());
    }
    mBatch.clear();
}

// Takes what follows for the same client from the queue: a client that sends many commands at once
// is written to, and woken, once for many answers. An answer whose completion somebody awaits goes
// by itself, so that the next one is not out before it is told.
void Processor::GatherAnswers() {
    const Command& first = *mBatch.front();
    if (mWaitingAnswers <= 1 || first.mMessager != nullptr ||
        first.mResponse.size() >= kBatchBytes) {
        return;
    }
    mBatchBytes.assign(first.mResponse.begin(), first.mResponse.end());
    while (mBatchBytes.size() < kBatchBytes) {
        Command* const next = mSendCmdQueue.pollIf([&first](const Command& other) {
            return other.mClientFd == first.mClientFd && other.mClient == first.mClient &&
                   other.mMessager == nullptr && other.mResponse.size() < kBatchBytes;
        });
        if (next == nullptr) {
            return;
        }
        mBatchBytes.insert(mBatchBytes.end(), next->mResponse.begin(), next->mResponse.end());
        mBatch.emplace_back(next);
    }
}

// What is still queued when the console is off: nobody is there to read it, but a module that
// waits for its answer to be done is told.
void Processor::DropAnswers() {
    while (Command* command = mSendCmdQueue.poll()) {
        const std::unique_ptr<Command> owned(command);
        ReleaseRoom(*command);
        mMessagerManager->HandleComplete(command);
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

// 0 when the next write is due, else why there will be none.
int Processor::WaitWritable(int fd, int64_t& stalledSinceMs, bool wasReady) {
    const int64_t now = MonotonicMs();
    if (stalledSinceMs < 0) {
        stalledSinceMs = now;
    }
    const int64_t left = stalledSinceMs + mWriteStallMs - now;
    if (left <= 0) {
        return ETIMEDOUT;
    }
    // A tty may call itself writable and still take nothing.
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
