// The descriptor of one client of a console, shared by everybody who may still answer it.
#pragma once

#include <atomic>

#include "platform/uniquefd.h"

namespace kelp {

// Held by the console's slot and by every Command that came from the client; the descriptor is
// closed when the last holder lets go. So a client that has left its slot still gets its answers,
// and its number cannot come to mean anybody else while an answer is on its way.
// For a device console it stands for one opening of the device. Any thread may use it.
class ClientDescriptor {
  public:
    explicit ClientDescriptor(UniqueFd fd) : mFd(static_cast<UniqueFd&&>(fd)) {}

    int Get() const { return mFd.Get(); }

    // True once nothing more may be written to the client.
    bool Gone() const { return mGone.load(std::memory_order_acquire); }

    // Gives the client up: answers that come later are dropped, and a socket's other end sees the
    // end of the stream at once, whoever still holds the descriptor.
    void HangUp();

  private:
    const UniqueFd mFd;
    std::atomic<bool> mGone{false};
};

}  // namespace kelp
