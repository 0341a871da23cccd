// Waiting for something to become true, without guessing how long it takes.
#pragma once

#include "platform/clock.h"
#include "platform/thread.h"

namespace kelp::test {

// How long anything may take that is going to happen at all: sanitizer builds on a busy machine
// are slow, and only a failing test waits this long.
inline constexpr int kPatienceMs = 30000;

// Polls `condition` until it holds. False when it still does not after kPatienceMs.
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
