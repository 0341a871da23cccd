// One client of a console: the number that it is known by, and the owner of its descriptor.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/sync.h"
#include "platform/uniquefd.h"

namespace kelp {

// Held by the console's slot, by every Command that came from the client, and by a module that
// answers it later. Holding it keeps the object, not the descriptor: the console closes that when
// it is switched off. A client that left by itself keeps its descriptor, and thus its number, until
// the last holder lets go, so that it gets its last answer and no answer reaches a stranger.
//
// For a device console the handle stands for the device: it survives a reopening, but not a stop.
// Any thread may use it.
class ClientHandle {
  public:
    // Keeps one descriptor open while it is read or written; null when there is none to use.
    using Hold = std::shared_ptr<const UniqueFd>;

    // `fd` is what is read and written. `number` is the descriptor that select watches: `fd`
    // itself, or for a device the console's own, of which `fd` is a duplicate.
    ClientHandle(UniqueFd fd, int number);

    int Number() const { return mNumber; }

    // True once nothing more may be written: a write failed, or the console was switched off.
    bool Gone() const { return mGone; }

    // Whether the client can be told nothing more: gone, or by now it has reset the connection or
    // closed both directions. (A TCP client that closed looks like one that only stopped sending.)
    bool HasEnded();

    // Null once the client is gone, and while the device is being opened anew. What closes the
    // descriptor takes effect when the hold is released.
    Hold Acquire() const {
        MutexLock lock(mMutex);
        return mGone ? nullptr : mFd;
    }

    // A device is opened anew: the old descriptor is closed first.
    void CloseDescriptor();
    void Reopen(UniqueFd fd, int number);

    // Gives the client up. The other end of a socket sees the end of the stream; the descriptor
    // stays open, because the receive thread still watches it. Never blocks.
    void HangUp();

    // Gives the client up and closes the descriptor as soon as nobody holds it. While a client goes
    // on sending, blocks until `deadlineMs` (of MonotonicMs) at most, so that no reset overtakes
    // its last answers.
    void Close(int64_t deadlineMs);

  private:
    std::atomic<int> mNumber;
    std::atomic<bool> mGone{false};
    mutable Mutex mMutex;  // a leaf
    Hold mFd KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
