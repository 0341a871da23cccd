// A connection to the PCBA test daemon.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "platform/localsocketclient.h"

namespace kelp {

// Shared by the module and the requests that were written on it.
struct PCBAConnection {
    explicit PCBAConnection(std::shared_ptr<LocalSocketClient> socket)
        : client(std::move(socket)) {}

    // Stops receiving and drops what was received.
    void GiveUp() {
        client->Shutdown();
        givenUp = true;
        bytes.clear();
    }

    const std::shared_ptr<LocalSocketClient> client;
    size_t waiting = 0;  // requests without their records; guarded by the module's mMutex
    // The next two belong to the module's thread while requests are pending, otherwise to the
    // thread that writes the next request.
    std::vector<char> bytes;  // received, not yet cut into records
    bool givenUp = false;
};

}  // namespace kelp
