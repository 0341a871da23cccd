// The owner of one file descriptor.
#pragma once

#include <errno.h>
#include <unistd.h>

namespace kelp {

// Move-only; closes once, keeps errno, and never retries close on EINTR (on Linux the descriptor is
// closed by then, and its number may be in use again).
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const { return mFd; }
    bool Ok() const { return mFd >= 0; }
    [[nodiscard]] int Release() {
        const int fd = mFd;
        mFd = -1;
        return fd;
    }
    void Reset(int fd = -1) {
        const int old = mFd;
        mFd = fd;
        if (old >= 0) {
            const int saved = errno;
            close(old);
            errno = saved;
        }
    }

  private:
    int mFd = -1;
};

}  // namespace kelp
