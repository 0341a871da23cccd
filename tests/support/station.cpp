#include "support/station.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

#include "support/wait.h"

namespace kelp::test {

bool Refused(int port) {
    return !ConnectTcp(port).Ok() && errno == ECONNREFUSED;
}

Station Station::Tcp(int port) {
    Station station((UniqueFd()));
    EXPECT_TRUE(WaitUntil([&] { return (station.mFd = ConnectTcp(port)).Ok(); }));
    return station;
}

Station Station::Local() {
    const LocalAddress address = AddressOf("/dev/socket/kelp", LocalNamespace::kAbstract);
    Station station((UniqueFd()));
    EXPECT_TRUE(WaitUntil([&] { return (station.mFd = ConnectLocalBlocking(address)).Ok(); }));
    return station;
}

Station Station::Line(int master) {
    return Station(UniqueFd(fcntl(master, F_DUPFD_CLOEXEC, 0)));
}

bool Station::Send(std::string_view bytes) {
    struct pollfd writable = {mFd.Get(), POLLOUT, 0};
    while (!bytes.empty() && poll(&writable, 1, kPatienceMs) == 1) {
        // Works for blocking and non-blocking descriptors; a tty may accept a part. No SIGPIPE when
        // the daemon has closed the connection.
        const size_t size = std::min<size_t>(bytes.size(), 4096);
        ssize_t n = send(mFd.Get(), bytes.data(), size, MSG_NOSIGNAL);
        if (n < 0 && errno == ENOTSOCK) {
            n = write(mFd.Get(), bytes.data(), size);
        }
        if (n < 0 && errno != EAGAIN) {
            break;
        }
        bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(n, 0)));
    }
    return bytes.empty();
}

std::string Station::Receive(size_t count) {
    std::string got;
    char chunk[16384];
    struct pollfd readable = {mFd.Get(), POLLIN, 0};
    while (mFd.Ok() && got.size() < count && poll(&readable, 1, kPatienceMs) == 1) {
        const ssize_t n = read(mFd.Get(), chunk, std::min(sizeof(chunk), count - got.size()));
        if (n <= 0) {
            break;
        }
        got.append(chunk, static_cast<size_t>(n));
    }
    return got;
}

void Station::HalfClose() {
    shutdown(mFd.Get(), SHUT_WR);
}

void Station::Reset() {
    const struct linger now = {1, 0};
    setsockopt(mFd.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    mFd.Reset();
}

testing::AssertionResult Station::Answers(std::string_view request, std::string_view answer) {
    const std::string got = Send(request) ? Receive(answer.size()) : "(cannot send)";
    if (got == answer) {
        return testing::AssertionSuccess();
    }
    const auto shown = [](std::string_view bytes) {
        return testing::PrintToString(bytes.substr(0, 400)) + " (" + std::to_string(bytes.size()) +
               " bytes)";
    };
    return testing::AssertionFailure()
           << shown(request) << " got " << shown(got) << ", not " << shown(answer);
}

}  // namespace kelp::test
