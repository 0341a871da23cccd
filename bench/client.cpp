#include "client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace kelp::bench {

namespace {

constexpr int kReplyTimeoutMs = 5000;

}  // namespace

Client::Client(UniqueFd fd, bool isTty) : mFd(std::move(fd)), mIsTty(isTty) {
    const struct timeval patience = {kReplyTimeoutMs / 1000, 0};
    setsockopt(mFd.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
}

bool Client::Send(std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = write(mFd.Get(), data.data(), data.size());
        if (n <= 0) {
            return false;
        }
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool Client::Receive(size_t bytes) {
    char buffer[65536];
    while (bytes > 0) {
        // A tty has no receive time-out; all subjects on a pty pay for this call alike.
        struct pollfd ready = {mFd.Get(), POLLIN, 0};
        if (mIsTty && poll(&ready, 1, kReplyTimeoutMs) <= 0) {
            return false;
        }
        const ssize_t n = read(mFd.Get(), buffer, std::min(bytes, sizeof(buffer)));
        if (n <= 0) {
            return false;
        }
        bytes -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace kelp::bench
