// The clients of a console.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "platform/sync.h"

namespace kelp {

class ClientHandle;

// Four slots for clients that are read, and a list of clients that have left and still wait for an
// answer. A device console has one client, its device. Any thread may use it; while the console
// runs only the receive thread changes it.
class ClientSlots {
  public:
    static constexpr int kSlots = 4;
    using Handle = std::shared_ptr<ClientHandle>;

    // Uses the first free slot. False when there is none; `client` is then not added.
    bool Add(Handle client);

    bool Full() const;

    // Frees the slot of the client with this `number`. Closes the descriptor now if the client has
    // ended, else with the last holder of the handle.
    void Remove(int number);

    // Frees the slot and returns the handle, still usable. Null when there is none.
    Handle Take(int number);

    // Null when no slot holds a client with this number.
    Handle Find(int number) const;

    // Slot by slot; -1 where one is free.
    std::array<int, kSlots> Numbers() const;

    // Closes the descriptors of all clients, including those that have left. Blocks for at most 0.6
    // seconds, while clients keep sending.
    void CloseAll();

  private:
    size_t SlotOf(int number) const KELP_REQUIRES(mMutex);

    mutable Mutex mMutex;  // a leaf
    std::array<Handle, kSlots> mClientFds KELP_GUARDED_BY(mMutex);
    std::vector<std::weak_ptr<ClientHandle>> mLeavers KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
