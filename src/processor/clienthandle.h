// One client of a console: its number, and the owner of its descriptor.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/sync.h"
#include "platform/uniquefd.h"

namespace kelp {

// Held by the console's slot, by every Command from the client, and by a module that answers it
// later. A holder keeps the object, not the descriptor: the console closes that when it is switched
// off. A client that left by itself keeps its descriptor, and so its number, until the last holder
// releases it: it gets its last answer, and no answer reaches another client.
//
// On a device console the handle stands for the device: it survives a reopening, but not a stop.
// Any thread may use it.
class ClientHandle {
  public:
    // Keeps the descriptor open during a read or write; null when there is none.
    using Hold = std::shared_ptr<const UniqueFd>;

    // `fd` is read and written. `number` is the descriptor that select watches: `fd` itself, or on
    // a device console the console's own, of which `fd` is a duplicate.
    ClientHandle(UniqueFd fd, int number);

    int Number() const { return mNumber; }

    // True when nothing more may be written: a write failed, or the console was switched off.
    bool Gone() const { return mGone; }

    // True when the client can get nothing more: gone, or it has reset the connection or closed
    // both directions. (A TCP client that closed looks like one that only stopped sending.) Never
    // for a device. What the client has sent can still be read: the question changes nothing.
    bool HasEnded() const;

    // Null when the client is gone, and while the device is being reopened. A close of the
    // descriptor takes effect when the last hold is released.
    Hold Acquire() const {
        MutexLock lock(mMutex);
        return mGone ? nullptr : mFd;
    }

    // Reopens a device: the old descriptor is closed first.
    void CloseDescriptor();
    void Reopen(UniqueFd fd, int number);

    // Marks the client as gone and shuts its socket down, so that the other end sees end of file.
    // The descriptor stays open, because the receive thread still watches it. Never blocks.
    void HangUp();

    // Marks the client as gone and closes the descriptor once nobody holds it. While the client
    // keeps sending, blocks until 100 ms after `deadlineMs` (of MonotonicMs) at most, so that no
    // reset overtakes its last answers.
    void Close(int64_t deadlineMs);

  private:
    std::atomic<int> mNumber;
    std::atomic<bool> mGone{false};
    mutable Mutex mMutex;  // a leaf
    Hold mFd KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
