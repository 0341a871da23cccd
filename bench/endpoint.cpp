#include "endpoint.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pty.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>

namespace kelp::bench {

namespace {

constexpr int kBacklog = 64;

socklen_t LocalAddress(const std::string& name, struct sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
        return static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + name.size());
    }
    return sizeof(address);
}

struct sockaddr_in TcpAddress(int port) {
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int CloseUnless(bool good, int fd) {
    if (!good && fd >= 0) {
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

const char* Name(Transport transport) {
    constexpr const char* kNames[] = {"local", "tcp", "pty"};
    return kNames[static_cast<int>(transport)];
}

int ListenLocal(const std::string& name) {
    struct sockaddr_un address;
    const socklen_t length = LocalAddress(name, address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return CloseUnless(bind(fd, reinterpret_cast<struct sockaddr*>(&address), length) == 0 &&
                           listen(fd, kBacklog) == 0,
                       fd);
}

int ConnectLocal(const std::string& name) {
    struct sockaddr_un address;
    const socklen_t length = LocalAddress(name, address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return CloseUnless(connect(fd, reinterpret_cast<struct sockaddr*>(&address), length) == 0, fd);
}

int ListenTcp(int port) {
    const struct sockaddr_in address = TcpAddress(port);
    const int one = 1;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));  // accepted sockets inherit it
    return CloseUnless(
        bind(fd, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) == 0 &&
            listen(fd, kBacklog) == 0,
        fd);
}

int ConnectTcp(int port) {
    const struct sockaddr_in address = TcpAddress(port);
    const int one = 1;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    return CloseUnless(
        connect(fd, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) == 0, fd);
}

int FreePort() {
    const int fd = ListenTcp(0);
    struct sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<struct sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

int OpenRaw(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    struct termios settings;
    if (tcgetattr(fd, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(fd, TCSANOW, &settings);
    }
    return fd;
}

bool OpenPty(int& master, int& slave, std::string& path) {
    char name[128];
    struct termios settings = {};
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 1;
    if (openpty(&master, &slave, name, &settings, nullptr) != 0) {
        return false;
    }
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    path = name;
    return true;
}

bool WriteAll(int fd, const char* data, size_t length) {
    while (length > 0) {
        const ssize_t n = write(fd, data, length);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        if (n > 0) {
            data += n;
            length -= static_cast<size_t>(n);
        }
    }
    return true;
}

}  // namespace kelp::bench
