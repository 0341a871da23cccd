// A listening local socket of a bench peer.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/uniquefd.h"

namespace kelp {
struct LocalAddress;
}  // namespace kelp

namespace kelp::tools {

// Removes its file when destroyed, unless another process has replaced it. One thread.
class PeerSocket {
  public:
    PeerSocket() = default;
    PeerSocket(PeerSocket&& other) noexcept;
    ~PeerSocket();

    // `name` is a path, or '@' and an abstract name. A stale socket file of a killed process is
    // replaced; a socket in use, or a file that is no socket, is an error. False with a message.
    bool Open(const std::string& name, std::string& error);
    int Fd() const { return mFd.Get(); }

  private:
    UniqueFd mFd;
    std::string mPath;  // the file to remove; empty: none
    dev_t mDevice = 0;
    ino_t mInode = 0;
};

// Parses the name of a local socket: '@' and an abstract name, else a path. False with errno.
bool ParseLocalAddress(const std::string& name, LocalAddress& address);

}  // namespace kelp::tools
