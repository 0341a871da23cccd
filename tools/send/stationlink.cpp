#include "send/stationlink.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "common/text.h"
#include "platform/clock.h"
#include "platform/localaddress.h"
#include "platform/thread.h"

namespace kelp::tools {

namespace {

constexpr char kDefaultPort[] = "3000";  // of the daemon's TCP console

UniqueFd ConnectTcpAddress(const struct addrinfo& address, int64_t deadlineMs) {
    UniqueFd fd(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.Ok()) {
        return fd;
    }
    const int on = 1;
    setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (connect(fd.Get(), address.ai_addr, address.ai_addrlen) == 0) {
        return fd;
    }
    if (errno != EINPROGRESS && errno != EINTR) {
        return UniqueFd();
    }
    const int left = static_cast<int>(std::max<int64_t>(deadlineMs - MonotonicMs(), 0));
    if (Thread::WaitFd(fd.Get(), POLLOUT, left) != WaitResult::kReady) {
        errno = ETIMEDOUT;
        return UniqueFd();
    }
    int result = 0;
    socklen_t length = sizeof(result);
    getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &result, &length);
    errno = result;
    return result == 0 ? std::move(fd) : UniqueFd();
}

UniqueFd ConnectTcp(const Target& target, int timeoutMs, std::string& error) {
    struct addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    struct addrinfo* found = nullptr;
    const int64_t deadlineMs = MonotonicMs() + timeoutMs;
    const int result = getaddrinfo(target.name.c_str(), target.port.c_str(), &hints, &found);
    if (result != 0) {
        error = gai_strerror(result);
        return UniqueFd();
    }
    UniqueFd fd;
    for (const struct addrinfo* next = found; next != nullptr && !fd.Ok(); next = next->ai_next) {
        fd = ConnectTcpAddress(*next, deadlineMs);
    }
    error = strerror(errno);
    freeaddrinfo(found);
    return fd;
}

UniqueFd ConnectLocalName(const std::string& name, LocalNamespace space, std::string& error) {
    LocalAddress address;
    UniqueFd fd(MakeLocalAddress(name, space, address) ? ConnectLocal(address) : -1);
    error = strerror(errno);
    return fd;
}

UniqueFd OpenTty(const std::string& path, std::string& error) {
    UniqueFd fd(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    struct termios settings = {};  // raw, whatever was set before
    settings.c_cflag = CS8 | CREAD | CLOCAL;
    settings.c_cc[VMIN] = 1;
    cfsetospeed(&settings, B115200);
    cfsetispeed(&settings, B115200);
    // The lock first: whoever holds it needs the line as it is.
    if (!fd.Ok() || flock(fd.Get(), LOCK_EX | LOCK_NB) != 0 ||
        tcsetattr(fd.Get(), TCSANOW, &settings) != 0) {
        const bool isLocked = errno == EWOULDBLOCK || errno == EBUSY;
        error = isLocked ? "locked by another program" : strerror(errno);
        return UniqueFd();
    }
    tcflush(fd.Get(), TCIFLUSH);
    return fd;
}

}  // namespace

bool ParseTarget(const std::string& text, Target& target) {
    if (!text.empty() && text[0] == '@') {
        target = {Target::Kind::kAbstract, text.substr(1), ""};
        return text.size() > 1;
    }
    if (text.find('/') != text.npos) {
        target = {Target::Kind::kPath, text, ""};
        return true;
    }
    if (IsIpv4(text)) {
        target = {Target::Kind::kTcp, text, kDefaultPort};
        return true;
    }
    const size_t colon = text.find(':');
    int port = 0;
    if (colon == text.npos || !ParseNumber(text.substr(colon + 1), 1, 65535, port)) {
        return false;
    }
    target = {Target::Kind::kTcp, text.substr(0, colon), std::to_string(port)};
    return colon > 0;
}

UniqueFd OpenTarget(const Target& target, int timeoutMs, std::string& error) {
    if (target.kind == Target::Kind::kTcp) {
        return ConnectTcp(target, timeoutMs, error);
    }
    if (target.kind == Target::Kind::kAbstract) {
        return ConnectLocalName(target.name, LocalNamespace::kAbstract, error);
    }
    struct stat status;
    if (stat(target.name.c_str(), &status) == 0 && S_ISCHR(status.st_mode)) {
        return OpenTty(target.name, error);
    }
    return ConnectLocalName(target.name, LocalNamespace::kFilesystem, error);
}

}  // namespace kelp::tools
