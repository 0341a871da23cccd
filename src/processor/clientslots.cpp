#include "processor/clientslots.h"

#include <algorithm>
#include <utility>

#include "platform/clock.h"
#include "processor/clienthandle.h"

namespace kelp {

namespace {

// For all clients together, while some keep sending.
constexpr int kMaxCloseMs = 500;

}  // namespace

size_t ClientSlots::SlotOf(int number) const {
    const auto* const slot =
        std::find_if(mClientFds.begin(), mClientFds.end(), [number](const Handle& client) {
            return (client != nullptr ? client->Number() : -1) == number;
        });
    return static_cast<size_t>(slot - mClientFds.begin());
}

bool ClientSlots::Add(Handle client) {
    MutexLock lock(mMutex);
    const size_t slot = SlotOf(-1);
    if (slot == mClientFds.size()) {
        return false;
    }
    mClientFds[slot] = std::move(client);
    return true;
}

bool ClientSlots::Full() const {
    MutexLock lock(mMutex);
    return SlotOf(-1) == mClientFds.size();
}

void ClientSlots::Remove(int number) {
    Handle client;
    {
        MutexLock lock(mMutex);
        const size_t slot = SlotOf(number);
        if (number == -1 || slot == mClientFds.size()) {
            return;
        }
        client = std::move(mClientFds[slot]);
        mLeavers.erase(std::remove_if(mLeavers.begin(), mLeavers.end(),
                                      [](const auto& leaver) { return leaver.expired(); }),
                       mLeavers.end());
        mLeavers.push_back(client);
    }
    if (client->HasEnded()) {
        client->Close(0);
    }
}

ClientSlots::Handle ClientSlots::Take(int number) {
    MutexLock lock(mMutex);
    const size_t slot = SlotOf(number);
    return number != -1 && slot != mClientFds.size() ? std::move(mClientFds[slot]) : nullptr;
}

ClientSlots::Handle ClientSlots::Find(int number) const {
    MutexLock lock(mMutex);
    const size_t slot = SlotOf(number);
    return slot != mClientFds.size() ? mClientFds[slot] : nullptr;
}

std::array<int, ClientSlots::kSlots> ClientSlots::Numbers() const {
    std::array<int, kSlots> numbers;
    MutexLock lock(mMutex);
    std::transform(mClientFds.begin(), mClientFds.end(), numbers.begin(),
                   [](const Handle& client) { return client != nullptr ? client->Number() : -1; });
    return numbers;
}

void ClientSlots::CloseAll() {
    std::vector<Handle> clients;
    {
        MutexLock lock(mMutex);
        for (const auto& leaver : mLeavers) {
            clients.push_back(leaver.lock());
        }
        mLeavers.clear();
        for (Handle& client : mClientFds) {
            clients.push_back(std::move(client));
        }
    }
    const int64_t deadlineMs = MonotonicMs() + kMaxCloseMs;
    for (const Handle& client : clients) {
        if (client != nullptr) {
            client->Close(deadlineMs);
        }
    }
}

}  // namespace kelp
