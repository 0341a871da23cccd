// Figures of a running process, from /proc.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace kelp::test {

// Permitted growth of the daemon under any load, in KiB. Sanitizers hold freed memory back.
inline constexpr int64_t kRoomKb = (KELP_SANITIZED ? 512 : 16) << 10;

// Processor time of all threads, in nanoseconds.
int64_t CpuNs(pid_t pid);

// Resident memory, in KiB.
int64_t ResidentKb(pid_t pid);

// Number of context switches of all threads, voluntary and involuntary.
int64_t Switches(pid_t pid);

// Whether no thread of the process runs for two seconds, or for KELP_IDLE_SECONDS (environment of
// the test). Waits first until pending work is done.
bool StaysIdle(pid_t pid);

}  // namespace kelp::test
