#include "platform/localaddress.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>

#include "platform/thread.h"
#include "platform/uniquefd.h"

namespace kelp {

namespace {

constexpr int kBusyPauseMs = 10;

}  // namespace

bool MakeLocalAddress(const std::string& name, LocalNamespace space, LocalAddress& out) {
    // An abstract name starts with a NUL, a path ends with one: one extra byte in both cases.
    const bool isPath = space == LocalNamespace::kFilesystem;
    if (name.empty() || (isPath && name.find('\0') != std::string::npos)) {
        errno = EINVAL;
        return false;
    }
    if (name.size() + 1 > sizeof(out.address.sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    memset(&out.address, 0, sizeof(out.address));
    out.address.sun_family = AF_UNIX;
    memcpy(out.address.sun_path + (isPath ? 0 : 1), name.data(), name.size());
    out.length = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + name.size() + 1);
    return true;
}

int ConnectLocal(const LocalAddress& address, int busyMs) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.Ok()) {
        return -1;
    }
    for (int waitedMs = 0; connect(fd.Get(), address.Get(), address.length) < 0;) {
        if (errno == EINTR) {
            continue;
        }
        // On AF_UNIX a full backlog is EAGAIN, not EINPROGRESS as on TCP.
        if (errno != EAGAIN || waitedMs >= busyMs || !Thread::SleepMs(kBusyPauseMs)) {
            return -1;
        }
        waitedMs += kBusyPauseMs;
    }
    return fd.Release();
}

}  // namespace kelp
