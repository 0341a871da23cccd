#include "platform/localsocketclient.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "main/errorcode.h"
#include "platform/clock.h"
#include "platform/localaddress.h"
#include "platform/thread.h"

namespace kelp {

namespace {

constexpr int kConnectionLost = 1;
constexpr int kSendStallMs = 30000;
constexpr int kReopenPauseMs = 1000;
constexpr size_t kLongAnswerBytes = 4096;
constexpr int kQuietMs = 20;
constexpr size_t kMaxAnswerBytes = 64u << 20;
constexpr size_t kMaxMessageBytes = 256u << 10;
constexpr size_t kMaxStaleBytes = 1u << 20;
constexpr size_t kChunkBytes = 16384;

// What is left until `deadlineMs` for poll; a negative deadline is none.
int LeftMs(int64_t deadlineMs) {
    if (deadlineMs < 0) {
        return -1;
    }
    return static_cast<int>(std::clamp<int64_t>(deadlineMs - MonotonicMs(), 0, INT_MAX));
}

int64_t DeadlineOf(const struct timeval& timeout) {
    if (timeout.tv_sec == 0 && timeout.tv_usec == 0) {
        return -1;
    }
    return MonotonicMs() + static_cast<int64_t>(timeout.tv_sec) * 1000 +
           (timeout.tv_usec + 999) / 1000;
}

// recv that only EINTR repeats; -1 with EAGAIN when nothing is there.
ssize_t ReceiveNow(int fd, void* buffer, size_t size) {
    ssize_t n;
    do {
        n = recv(fd, buffer, size, MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    return n;
}

}  // namespace

LocalSocketClient::LocalSocketClient(std::string path, Reopen reopen)
    : mPath(std::move(path)), mReopen(reopen) {}

LocalSocketClient::Connection LocalSocketClient::Open() {
    if (Thread::StopRequested()) {
        return nullptr;  // a console that is switched off begins no exchange
    }
    for (const LocalNamespace space : {LocalNamespace::kFilesystem, LocalNamespace::kAbstract}) {
        LocalAddress address;
        if (!MakeLocalAddress(mPath, space, address)) {
            continue;
        }
        UniqueFd fd(ConnectLocal(address));
        // Whoever asks and then waits does so in recv itself. All else here is asked for with
        // MSG_DONTWAIT anyway.
        if (fd.Ok() && (mReopen != Reopen::kOnSend || fcntl(fd.Get(), F_SETFL, 0) == 0)) {
            return std::make_shared<UniqueFd>(std::move(fd));
        }
    }
    return nullptr;
}

int LocalSocketClient::sopen() {
    Connection opened = Open();
    const int fd = opened != nullptr ? opened->Get() : -1;
    MutexLock lock(mMutex);
    if (mConnection != nullptr) {
        shutdown(mConnection->Get(), SHUT_RDWR);
    }
    mState = opened != nullptr ? State::kOpen : State::kClosed;
    mConnection = std::move(opened);
    return fd;
}

void LocalSocketClient::sclose() {
    MutexLock lock(mMutex);
    const bool reads = mReopen == Reopen::kOnReceive;
    if (reads && mConnection.get() != mReceived) {
        return;
    }
    if (mConnection != nullptr) {
        // Wakes a reader; the descriptor itself lives until the last user has let go. Users take
        // their share under the lock, so without one now there will be none.
        if (mConnection.use_count() > 1) {
            shutdown(mConnection->Get(), SHUT_RDWR);
        }
        mConnection.reset();
    }
    mState = reads && mState != State::kClosed ? State::kLost : State::kClosed;
}

int LocalSocketClient::Descriptor() const {
    MutexLock lock(mMutex);
    return mConnection != nullptr ? mConnection->Get() : -1;
}

LocalSocketClient::Connection LocalSocketClient::Current() const {
    MutexLock lock(mMutex);
    return mConnection;
}

LocalSocketClient::Connection LocalSocketClient::CurrentToReceive() {
    MutexLock lock(mMutex);
    mReceived = mConnection.get();
    return mConnection;
}

void LocalSocketClient::Lose(const Connection& connection) {
    MutexLock lock(mMutex);
    // Somebody else may have reopened in the meantime.
    if (mConnection == connection) {
        shutdown(connection->Get(), SHUT_RDWR);
        mConnection.reset();
        mState = State::kLost;
    }
}

LocalSocketClient::Connection LocalSocketClient::Adopt(Connection opened) {
    MutexLock lock(mMutex);
    mNextReopenMs = MonotonicMs() + kReopenPauseMs;
    if (mState == State::kLost && opened != nullptr) {
        mConnection = std::move(opened);
        mState = State::kOpen;
    }
    // Null while closed on purpose; another thread's connection when that one was faster.
    return mConnection;
}

LocalSocketClient::Connection LocalSocketClient::CurrentOrReopened() {
    {
        MutexLock lock(mMutex);
        if (mState != State::kLost || mReopen == Reopen::kNever) {
            return mConnection;
        }
    }
    return Adopt(Open());
}

int LocalSocketClient::ssend(const std::vector<char>& data) {
    TurnHolder turn(mSending);
    if (!turn.Held() || Thread::StopRequested()) {
        return kConnectionLost;
    }
    // A peer that died since the last exchange shows only when it is written to: one more try then.
    for (bool retried = false;; retried = true) {
        const Connection connection = CurrentOrReopened();
        if (connection == nullptr) {
            return kErrorInvalidDescriptor;
        }
        const int result = Write(connection, data);
        if (result != 0 && mReopen != Reopen::kNever) {
            Lose(connection);
        }
        if (result != EPIPE || retried || mReopen == Reopen::kNever) {
            return result == EPIPE ? kConnectionLost : result;
        }
    }
}

// 0, 6002, EPIPE when the peer is gone, 1 when the thread was stopped.
int LocalSocketClient::Write(const Connection& connection, const std::vector<char>& data) {
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = send(connection->Get(), data.data() + sent, data.size() - sent,
                               MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN) {
            return EPIPE;
        }
        switch (Thread::WaitFd(connection->Get(), POLLOUT, kSendStallMs)) {
            case WaitResult::kReady:
                break;
            case WaitResult::kTimeOut:
                return kErrorTimeOut;
            case WaitResult::kStopped:
                return kConnectionLost;
        }
    }
    return 0;
}

int LocalSocketClient::sreceive(std::vector<char>& data, struct timeval timeout) {
    const int64_t deadlineMs = DeadlineOf(timeout);
    for (;;) {
        const Connection connection = CurrentToReceive();
        if (connection == nullptr) {
            const int result = Reconnect(deadlineMs);
            if (result != 0) {
                return result;
            }
            continue;
        }
        if (deadlineMs < 0 && mReopen == Reopen::kOnSend) {
            return Collect(connection, data, Thread::Receive);
        }
        switch (Thread::WaitFd(connection->Get(), POLLIN, LeftMs(deadlineMs))) {
            case WaitResult::kReady: {
                const int result = Collect(connection, data, ReceiveNow);
                if (result != EAGAIN) {
                    return result;
                }
                break;
            }
            case WaitResult::kTimeOut:
                return kErrorTimeOut;
            case WaitResult::kStopped:
                if (mReopen == Reopen::kOnSend) {
                    Lose(connection);
                }
                return kConnectionLost;
        }
    }
}

// Without a connection: 0 as soon as there is one again, else what sreceive answers.
int LocalSocketClient::Reconnect(int64_t deadlineMs) {
    for (;;) {
        int64_t pause;
        {
            MutexLock lock(mMutex);
            if (mState == State::kOpen) {
                return 0;
            }
            if (mState == State::kClosed || mReopen != Reopen::kOnReceive) {
                return kErrorInvalidDescriptor;
            }
            pause = mNextReopenMs - MonotonicMs();
        }
        if (pause > 0) {
            const int left = LeftMs(deadlineMs);
            if (left >= 0 && left < pause) {
                return Thread::SleepMs(left) ? kErrorTimeOut : kConnectionLost;
            }
            if (!Thread::SleepMs(static_cast<int>(pause))) {
                return kConnectionLost;
            }
        } else if (Thread::StopRequested()) {
            return kConnectionLost;
        } else {
            CurrentOrReopened();
        }
    }
}

// Takes what is there, the first of it with `receive`. 0 with bytes, 1 when the connection is lost,
// EAGAIN when nothing was there.
int LocalSocketClient::Collect(const Connection& connection, std::vector<char>& data,
                               ssize_t (*receive)(int, void*, size_t)) {
    const size_t limit = mReopen == Reopen::kOnReceive ? kMaxMessageBytes : kMaxAnswerBytes;
    const size_t before = data.size();
    char chunk[kChunkBytes];
    for (;;) {
        const ssize_t n = receive(connection->Get(), chunk, sizeof(chunk));
        receive = ReceiveNow;
        if (n > 0) {
            data.insert(data.end(), chunk, chunk + n);
        }
        const size_t got = data.size() - before;
        if (n == 0 || (n < 0 && errno != EAGAIN)) {
            if (got > 0) {
                return 0;  // the loss is the next call's news
            }
            Lose(connection);
            return kConnectionLost;
        }
        if (n < 0 && got == 0) {
            return EAGAIN;
        }
        if (got >= limit) {
            if (mReopen == Reopen::kOnSend) {
                Lose(connection);  // what follows must not become the next answer
            }
            return 0;
        }
        // A stream read that did not fill the chunk has emptied the socket.
        const bool emptied = n < static_cast<ssize_t>(sizeof(chunk));
        if (got < kLongAnswerBytes) {
            return 0;
        }
        if (emptied && Thread::WaitFd(connection->Get(), POLLIN, kQuietMs) != WaitResult::kReady) {
            return 0;
        }
    }
}

size_t LocalSocketClient::Discard() {
    const Connection connection = Current();
    if (connection == nullptr) {
        return 0;
    }
    char chunk[kChunkBytes];
    size_t dropped = 0;
    for (;;) {
        const ssize_t n = ReceiveNow(connection->Get(), chunk, sizeof(chunk));
        if (n > 0) {
            dropped += static_cast<size_t>(n);
        }
        if (n == 0 || (n < 0 && errno != EAGAIN) || dropped > kMaxStaleBytes) {
            Lose(connection);
            return dropped;
        }
        if (n < static_cast<ssize_t>(sizeof(chunk))) {
            return dropped;
        }
    }
}

}  // namespace kelp
