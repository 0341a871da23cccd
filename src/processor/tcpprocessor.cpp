#include "processor/tcpprocessor.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "config/configmanager.h"
#include "platform/log.h"
#include "platform/uniquefd.h"

namespace kelp {

namespace {

constexpr int kBacklog = 4;

void SetOption(int fd, int level, int option, int value) {
    setsockopt(fd, level, option, &value, sizeof(value));
}

// Accepted sockets inherit these. Answers leave at once, and a station that lost power frees its
// slot within about a minute, idle or with unacknowledged data.
void SetStationOptions(int fd) {
    SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(fd, SOL_SOCKET, SO_OOBINLINE, 1);  // also for bytes that arrive before accept
    SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, 20);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPCNT, 4);
    SetOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, 60000);
}

int BindTo(int fd, const std::string& ip, int port) {
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port & 0xffff));
    address.sin_addr.s_addr = ip.empty() ? htonl(INADDR_ANY) : inet_addr(ip.c_str());
    // INADDR_NONE means invalid text, but it is also the broadcast address, which Linux would bind.
    if (address.sin_addr.s_addr == INADDR_NONE) {
        errno = EADDRNOTAVAIL;
        return -1;
    }
    return bind(fd, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address));
}

}  // namespace

TCPProcessor::TCPProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : ListenProcessor(configManager, messagerManager, "tcp") {}

int TCPProcessor::Connect() {
    if (mServerFd != -1) {
        return mServerFd;
    }
    // Read again: address and port may have changed since the console was last opened.
    const CommonConfig* config = mConfigManager->GetConfigByName(GetName());
    if (config == nullptr) {
        KLOG(kLogError) << GetName() << "-->Get config failed";
        return -1;
    }
    const std::string ip = config->route;
    const int port = config->port;
    KLOG(kLogDebug) << GetName() << "-> TCP: ip (" << ip << ") port (" << port << ")";
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    KLOG(kLogDebug) << "TCP mServerFd is " << fd.Get();
    if (!fd.Ok()) {
        KLOG(kLogError) << GetName() << "-->create error: " << errno;
        return -1;
    }
    SetOption(fd.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    SetStationOptions(fd.Get());
    if (BindTo(fd.Get(), ip, port) < 0) {
        KLOG(kLogError) << GetName() << "-->bind error: " << errno;
        return -1;
    }
    if (listen(fd.Get(), kBacklog) < 0) {
        KLOG(kLogError) << GetName() << "-->listen error: " << errno;
        return -1;
    }
    return fd.Release();
}

}  // namespace kelp
