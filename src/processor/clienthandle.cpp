#include "processor/clienthandle.h"

#include <poll.h>
#include <sys/socket.h>

#include <utility>

#include "platform/clock.h"

namespace kelp {

namespace {

constexpr int kQuietMs = 100;

// Reads away what a socket has. False when there was nothing.
bool Drain(int fd) {
    char scratch[16384];
    bool any = false;
    for (int i = 0; i < 64; ++i) {
        if (recv(fd, scratch, sizeof(scratch), MSG_DONTWAIT) <= 0) {
            break;
        }
        any = true;
    }
    return any;
}

}  // namespace

ClientHandle::ClientHandle(UniqueFd fd, int number)
    : mNumber(number), mFd(std::make_shared<const UniqueFd>(std::move(fd))) {}

bool ClientHandle::HasEnded() {
    const Hold hold = Acquire();
    struct pollfd socket = {hold != nullptr ? hold->Get() : -1, 0, 0};
    if (poll(&socket, 1, 0) == 1 && (socket.revents & (POLLHUP | POLLERR)) != 0) {
        mGone = true;
    }
    return mGone;
}

void ClientHandle::CloseDescriptor() {
    Hold released;
    MutexLock lock(mMutex);
    mFd.swap(released);
}

void ClientHandle::Reopen(UniqueFd fd, int number) {
    Hold opened = std::make_shared<const UniqueFd>(std::move(fd));
    MutexLock lock(mMutex);
    mNumber = number;
    mFd.swap(opened);
}

void ClientHandle::HangUp() {
    const Hold hold = Acquire();
    mGone = true;
    if (hold != nullptr) {
        shutdown(hold->Get(), SHUT_RDWR);
    }
}

void ClientHandle::Close(int64_t deadlineMs) {
    const Hold hold = Acquire();
    mGone = true;
    // Closing a TCP socket with unread bytes, or one that more bytes arrive for, resets the
    // connection, and what the client has not taken yet is lost. ENOTSOCK on a tty.
    if (hold != nullptr && shutdown(hold->Get(), SHUT_WR) == 0) {
        struct pollfd more = {hold->Get(), POLLIN, 0};
        while (Drain(hold->Get()) && MonotonicMs() < deadlineMs && poll(&more, 1, kQuietMs) > 0) {
        }
    }
    CloseDescriptor();
}

}  // namespace kelp
