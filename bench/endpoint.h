// Addresses and connections of the measured relays, their clients and their peer.
#pragma once

#include <sys/socket.h>

#include <string>
#include <utility>

#include "platform/localaddress.h"
#include "platform/uniquefd.h"
#include "support/sockets.h"

namespace kelp::bench {

enum class Transport { kLocal, kTcp, kPty };

inline Transport TransportOf(const std::string& name) {
    return name == "tcp" ? Transport::kTcp : name == "pty" ? Transport::kPty : Transport::kLocal;
}

inline LocalAddress PathAddress(const std::string& path) {
    LocalAddress address = {};
    MakeLocalAddress(path, LocalNamespace::kFilesystem, address);
    return address;
}

// A blocking socket, unlike the daemon's; not Ok() on failure.
inline UniqueFd Connect(const LocalAddress& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(fd.Get(), address.Get(), address.length) == 0 ? std::move(fd) : UniqueFd();
}

}  // namespace kelp::bench
