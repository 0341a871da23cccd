// Waiting for a condition, with a deadline.
#pragma once

#include "platform/clock.h"
#include "platform/thread.h"

namespace kelp::test {

// Deadline of every wait: long enough for sanitizer builds on a busy machine. Only a failing test
// waits this long.
inline constexpr int kPatienceMs = 30000;

// Polls `condition` until it is true. Returns false if it is still false after kPatienceMs.
template <typename Condition>
bool WaitUntil(Condition condition) {
    const int64_t deadlineMs = MonotonicMs() + kPatienceMs;
    while (!condition()) {
        if (MonotonicMs() > deadlineMs) {
            return false;
        }
        Thread::SleepMs(2);
    }
    return true;
}

}  // namespace kelp::test
