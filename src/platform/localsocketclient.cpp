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

constexpr int kResultLost = 1;
constexpr int kSendStallMs = 30000;
constexpr size_t kMaxStaleBytes = 1u << 20;
constexpr size_t kChunkBytes = 16384;

// send and recv below do not wait (MSG_DONTWAIT), and so never fail with EINTR.

// kDone when `fd` is ready, else kTimeOut (at `deadlineMs`, but after `limitMs` at most) or
// kStopped.
LocalResult Await(int fd, short events, int64_t deadlineMs, int limitMs) {
    const int64_t leftMs = std::clamp<int64_t>(deadlineMs - MonotonicMs(), 0, limitMs);
    const WaitResult wait = Thread::WaitFd(fd, events, static_cast<int>(leftMs));
    return wait == WaitResult::kReady     ? LocalResult::kDone
           : wait == WaitResult::kTimeOut ? LocalResult::kTimeOut
                                          : LocalResult::kStopped;
}

}  // namespace

int ToErrorCode(LocalResult result) {
    switch (result) {
        case LocalResult::kDone:
            return kSuccess;
        case LocalResult::kLost:
        case LocalResult::kStopped:
            return kResultLost;
        case LocalResult::kTimeOut:
        case LocalResult::kCut:
            return kErrorTimeOut;
        case LocalResult::kClosed:
            break;
    }
    return kErrorInvalidDescriptor;
}

LocalSocketClient::LocalSocketClient(std::string path) : mPath(std::move(path)) {}

int LocalSocketClient::sopen(int busyMs) {
    for (const LocalNamespace space : {LocalNamespace::kFilesystem, LocalNamespace::kAbstract}) {
        LocalAddress address;
        if (!MakeLocalAddress(mPath, space, address)) {
            continue;
        }
        UniqueFd fd(ConnectLocal(address, busyMs));
        // Blocking mode: sreceive without a time-out blocks in recv; all else uses MSG_DONTWAIT.
        if (fd.Ok() && fcntl(fd.Get(), F_SETFL, 0) == 0) {
            mFd = std::move(fd);
            return mFd.Get();
        }
    }
    return -1;
}

LocalResult LocalSocketClient::ssend(const std::vector<char>& data, int64_t deadlineMs) {
    if (!mFd.Ok()) {
        return LocalResult::kClosed;
    }
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n =
            send(mFd.Get(), data.data() + sent, data.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (errno != EAGAIN) {
            return LocalResult::kLost;
        }
        const LocalResult wait = Await(mFd.Get(), POLLOUT, deadlineMs, kSendStallMs);
        if (wait != LocalResult::kDone && sent > 0) {
            // Send nothing after a partial message: the peer would take it for the rest.
            shutdown(mFd.Get(), SHUT_WR);
            return LocalResult::kCut;
        }
        if (wait != LocalResult::kDone) {
            return wait;
        }
    }
    return LocalResult::kDone;
}

LocalResult LocalSocketClient::sreceive(std::vector<char>& data, struct timeval timeout) {
    if (!mFd.Ok()) {
        return LocalResult::kClosed;
    }
    const bool limited = timeout.tv_sec != 0 || timeout.tv_usec != 0;
    const int64_t deadlineMs =
        limited ? MonotonicMs() + int64_t{timeout.tv_sec} * 1000 + (timeout.tv_usec + 999) / 1000
                : kNoDeadline;
    for (;;) {
        const LocalResult wait =
            limited ? Await(mFd.Get(), POLLIN, deadlineMs, INT_MAX) : LocalResult::kDone;
        if (wait != LocalResult::kDone) {
            return wait;
        }
        char chunk[kChunkBytes];
        const ssize_t n = limited ? recv(mFd.Get(), chunk, sizeof(chunk), MSG_DONTWAIT)
                                  : Thread::Receive(mFd.Get(), chunk, sizeof(chunk));
        if (n > 0) {
            data.insert(data.end(), chunk, chunk + n);
            return LocalResult::kDone;
        }
        if (n == 0 || errno != EAGAIN) {
            return n < 0 && errno == ECANCELED ? LocalResult::kStopped : LocalResult::kLost;
        }
    }
}

LocalResult LocalSocketClient::Discard(size_t& dropped) {
    if (!mFd.Ok()) {
        return LocalResult::kClosed;
    }
    char chunk[kChunkBytes];
    for (const size_t before = dropped; dropped - before <= kMaxStaleBytes;) {
        const ssize_t n = recv(mFd.Get(), chunk, sizeof(chunk), MSG_DONTWAIT);
        if (n < 0 && errno == EAGAIN) {
            return LocalResult::kDone;
        }
        if (n <= 0) {
            break;
        }
        dropped += static_cast<size_t>(n);
    }
    return LocalResult::kLost;
}

void LocalSocketClient::Shutdown() {
    if (mFd.Ok()) {
        shutdown(mFd.Get(), SHUT_RDWR);
    }
}

}  // namespace kelp
