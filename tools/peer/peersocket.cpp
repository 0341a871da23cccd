#include "peer/peersocket.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "platform/localaddress.h"

namespace kelp::tools {

namespace {

bool IsAbstract(const std::string& name) {
    return !name.empty() && name[0] == '@';
}

// True when the name is free: unused, or its stale socket was removed.
bool RemoveStale(const std::string& path, const LocalAddress& address, std::string& error) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT;
    }
    if (!S_ISSOCK(status.st_mode)) {
        error = "exists and is not a socket";
        return false;
    }
    const UniqueFd probe(ConnectLocal(address));
    if (probe.Ok() || errno != ECONNREFUSED) {
        error = "is served by another process";
        return false;
    }
    return unlink(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace

bool ParseLocalAddress(const std::string& name, LocalAddress& address) {
    return IsAbstract(name) ? MakeLocalAddress(name.substr(1), LocalNamespace::kAbstract, address)
                            : MakeLocalAddress(name, LocalNamespace::kFilesystem, address);
}

PeerSocket::PeerSocket(PeerSocket&& other) noexcept
    : mFd(std::move(other.mFd)),
      mPath(std::exchange(other.mPath, std::string())),
      mDevice(other.mDevice),
      mInode(other.mInode) {}

PeerSocket::~PeerSocket() {
    struct stat status;
    if (!mPath.empty() && lstat(mPath.c_str(), &status) == 0 && status.st_dev == mDevice &&
        status.st_ino == mInode) {
        unlink(mPath.c_str());
    }
}

bool PeerSocket::Open(const std::string& name, std::string& error) {
    LocalAddress address;
    mFd.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    std::string reason;
    bool ok = mFd.Ok() && ParseLocalAddress(name, address);
    if (ok && bind(mFd.Get(), address.Get(), address.length) != 0) {
        ok = errno == EADDRINUSE && !IsAbstract(name) && RemoveStale(name, address, reason) &&
             bind(mFd.Get(), address.Get(), address.length) == 0;
    }
    if (ok && !IsAbstract(name)) {
        struct stat status;
        ok = lstat(name.c_str(), &status) == 0;
        mPath = ok ? name : "";
        mDevice = ok ? status.st_dev : 0;
        mInode = ok ? status.st_ino : 0;
    }
    ok = ok && listen(mFd.Get(), SOMAXCONN) == 0;
    if (!ok) {
        error = name + ": " + (reason.empty() ? strerror(errno) : reason);
    }
    return ok;
}

}  // namespace kelp::tools
