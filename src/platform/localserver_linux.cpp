#include <sys/socket.h>

#include "platform/localaddress.h"
#include "platform/localserver.h"
#include "platform/uniquefd.h"

namespace kelp {

namespace {

constexpr int kBacklog = 4;  // what Android's socket_local_server uses

}  // namespace

int ListenLocalAbstract(const std::string& name) {
    LocalAddress address;
    if (!MakeLocalAddress(name, LocalNamespace::kAbstract, address)) {
        return -1;
    }
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.Ok()) {
        return -1;
    }
    const int on = 1;
    setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (bind(fd.Get(), address.Get(), address.length) < 0 || listen(fd.Get(), kBacklog) < 0) {
        return -1;
    }
    return fd.Release();
}

}  // namespace kelp
