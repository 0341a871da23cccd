// Addresses of local (AF_UNIX) sockets.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace kelp {

enum class LocalNamespace {
    kAbstract,    // no file; the name is exactly the given bytes
    kFilesystem,  // a path
};

// An address with its exact length (an abstract name is not terminated).
struct LocalAddress {
    struct sockaddr_un address;
    socklen_t length;

    const struct sockaddr* Get() const {
        return reinterpret_cast<const struct sockaddr*>(&address);
    }
};

// False (errno ENAMETOOLONG or EINVAL) when `name` is empty, does not fit, or is a path with a NUL
// byte in it. Names are never truncated.
bool MakeLocalAddress(const std::string& name, LocalNamespace space, LocalAddress& out);

// Connects a new stream socket (non-blocking, close-on-exec). Returns the descriptor, which the
// caller owns, or -1 with errno. Retries for up to `busyMs` milliseconds while the listener's
// backlog is full; Thread::Stop ends the retries.
int ConnectLocal(const LocalAddress& address, int busyMs = 1000);

}  // namespace kelp
