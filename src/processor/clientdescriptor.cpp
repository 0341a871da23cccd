#include "processor/clientdescriptor.h"

#include <sys/socket.h>

namespace kelp {

namespace {

constexpr int kMaxDrains = 64;

}  // namespace

void ClientDescriptor::HangUp() {
    mGone.store(true, std::memory_order_release);
    // Fails on a device, where there is nothing to tell the other end.
    if (shutdown(mFd.Get(), SHUT_WR) < 0) {
        return;
    }
    // Closing a TCP socket with unread bytes resets the connection and may take the last answer
    // with it, so what the client has sent is read away first.
    char scratch[4096];
    for (int i = 0; i < kMaxDrains; ++i) {
        if (recv(mFd.Get(), scratch, sizeof(scratch), MSG_DONTWAIT) <= 0) {
            break;
        }
    }
    shutdown(mFd.Get(), SHUT_RD);
}

}  // namespace kelp
