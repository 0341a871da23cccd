#include "processor/clienthandle.h"

#include <poll.h>
#include <sys/socket.h>

#include <utility>

#include "platform/clock.h"

namespace kelp {

namespace {

constexpr int kQuietMs = 100;

// Discards what a socket has received. False when there was nothing.
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

bool ClientHandle::HasEnded() const {
    const Hold hold = Acquire();
    // Of a device, `hold` is a duplicate of what the number means.
    struct pollfd socket = {hold != nullptr && hold->Get() == mNumber ? hold->Get() : -1, 0, 0};
    return mGone || (poll(&socket, 1, 0) == 1 && (socket.revents & (POLLHUP | POLLERR)) != 0);
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
    // A TCP socket that is closed with unread bytes, or that gets more bytes afterwards, resets the
    // connection; data that the client has not read is lost. ENOTSOCK on a tty.
    if (hold != nullptr && shutdown(hold->Get(), SHUT_WR) == 0) {
        struct pollfd more = {hold->Get(), POLLIN, 0};
        while (Drain(hold->Get()) && MonotonicMs() < deadlineMs && poll(&more, 1, kQuietMs) > 0) {
        }
    }
    CloseDescriptor();
}

}  // namespace kelp
