// A listening local socket of a bench peer.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/uniquefd.h"

namespace kelp {
struct LocalAddress;
}  // namespace kelp

namespace kelp::tools {

// Removes its file when it is destroyed, unless somebody has put another one there. One thread.
class PeerSocket {
  public:
    PeerSocket() = default;
    PeerSocket(PeerSocket&& other) noexcept;
    ~PeerSocket();

    // `name` is a path or '@' and an abstract name. A file that a killed process left is replaced;
    // what a live one serves, and what is no socket, is an error. False with a message.
    bool Open(const std::string& name, std::string& error);
    int Fd() const { return mFd.Get(); }

  private:
    UniqueFd mFd;
    std::string mPath;  // the file that is ours; empty: none
    dev_t mDevice = 0;
    ino_t mInode = 0;
};

// Reads the notation of local sockets: '@' and an abstract name, else a path. False with errno.
bool ParseLocalAddress(const std::string& name, LocalAddress& address);

}  // namespace kelp::tools
