// A request of the PCBA module that waits for its answer.
#pragma once

#include <cstdint>
#include <memory>

#include "processor/command.h"

namespace kelp {

struct PCBAConnection;

// Owned by the queue, then by the module's thread; deletes what it still owns. In mInFlight, its
// command and its connection are guarded by the module's mMutex.
struct MessagerToken {
    int32_t result = -1;  // the descriptor that the request was written on, or -1; otherwise unused
    std::unique_ptr<Command> command;  // null once handed back, or abandoned
    void* processor = nullptr;         // the console that gets the answer
    // The connection that the request was written on; only it can bring the answer. Null when the
    // request was not sent.
    std::shared_ptr<PCBAConnection> connection;
};

}  // namespace kelp
