// One request of the PCBA module that waits for its answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "processor/command.h"

namespace kelp {

struct PCBAConnection;

// Owned by the queue and then by the module's thread; what it still owns goes with it. Once queued,
// its command and its connection are guarded by the module's mMutex.
struct MessagerToken {
    int32_t result = -1;               // of Send; -1: the request never left
    std::unique_ptr<Command> command;  // null once it is handed back
    void* processor = nullptr;         // the console that gets the answer
    // The connection that the request was written on, and that alone can bring its answer. Null
    // when the request never left.
    std::shared_ptr<PCBAConnection> connection;
};

}  // namespace kelp
