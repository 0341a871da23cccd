#include "platform/sync.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kelp {

namespace {

// Futexes work on the bytes of the atomic itself.
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

}  // namespace

bool CondVar::Sleep(Mutex& mutex, const struct timespec* deadline) {
    mWaiters.fetch_add(1);
    const uint32_t sequence = mSequence.load();
    mutex.Unlock();
    // An absolute deadline on CLOCK_MONOTONIC. Any other end than the time-out is a wake-up.
    const long result = syscall(SYS_futex, &mSequence, FUTEX_WAIT_BITSET_PRIVATE, sequence,
                                deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
    const bool timedOut = result != 0 && errno == ETIMEDOUT;
    mutex.Lock();
    mWaiters.fetch_sub(1);
    return !timedOut;
}

void CondVar::Wake(int count) {
    mSequence.fetch_add(1);
    if (mWaiters.load() > 0) {
        syscall(SYS_futex, &mSequence, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
    }
}

}  // namespace kelp
