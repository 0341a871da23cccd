// The clock of all deadlines in the daemon.
#pragma once

#include <time.h>

#include <cstdint>

namespace kelp {

// Milliseconds on CLOCK_MONOTONIC: never jumps when the wall clock is set.
inline int64_t MonotonicMs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace kelp
