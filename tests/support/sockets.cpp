#include "support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <utility>

namespace kelp::test {

namespace {

constexpr int kBacklog = 16;

struct sockaddr_in Loopback(int port) {
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// `enter` is bind or connect.
template <typename Enter>
UniqueFd Socket(Enter enter, const struct sockaddr* address, socklen_t length, bool listens) {
    UniqueFd fd(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (address->sa_family == AF_INET) {
        setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    const bool good = enter(fd.Get(), address, length) == 0;
    return good && (!listens || listen(fd.Get(), kBacklog) == 0) ? std::move(fd) : UniqueFd();
}

}  // namespace

LocalAddress AddressOf(const std::string& name, LocalNamespace space) {
    LocalAddress address = {};
    MakeLocalAddress(name, space, address);
    return address;
}

UniqueFd ListenLocal(const LocalAddress& address) {
    return Socket(bind, address.Get(), address.length, true);
}

UniqueFd ConnectLocalBlocking(const LocalAddress& address) {
    return Socket(connect, address.Get(), address.length, false);
}

UniqueFd ListenTcp(int port) {
    const struct sockaddr_in address = Loopback(port);
    return Socket(bind, reinterpret_cast<const sockaddr*>(&address), sizeof(address), true);
}

UniqueFd ConnectTcp(int port) {
    const struct sockaddr_in address = Loopback(port);
    return Socket(connect, reinterpret_cast<const sockaddr*>(&address), sizeof(address), false);
}

int FreePort() {
    struct sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(ListenTcp(0).Get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

}  // namespace kelp::test
