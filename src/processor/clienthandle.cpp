#include "processor/clienthandle.h"

#include <sys/socket.h>

#include <utility>

namespace kelp {

namespace {

constexpr int kMaxDrains = 64;

}  // namespace

ClientHandle::ClientHandle(UniqueFd fd, int number)
    : mNumber(number), mFd(std::make_shared<const UniqueFd>(std::move(fd))) {}

void ClientHandle::Reopen(UniqueFd fd, int number) {
    Hold opened = std::make_shared<const UniqueFd>(std::move(fd));
    MutexLock lock(mMutex);
    mNumber = number;
    mFd.swap(opened);
}

void ClientHandle::HangUp() {
    const Hold hold = Acquire();
    mGone = true;
    // ENOTSOCK on a tty.
    if (hold == nullptr || shutdown(hold->Get(), SHUT_WR) < 0) {
        return;
    }
    // Closing a TCP socket with unread bytes resets the connection, and the reset may overtake the
    // last answer: read away what the client has sent.
    char scratch[4096];
    for (int i = 0; i < kMaxDrains; ++i) {
        if (recv(hold->Get(), scratch, sizeof(scratch), MSG_DONTWAIT) <= 0) {
            break;
        }
    }
    shutdown(hold->Get(), SHUT_RD);
}

void ClientHandle::Close() {
    HangUp();
    Hold closed;
    MutexLock lock(mMutex);
    mFd.swap(closed);
}

}  // namespace kelp
