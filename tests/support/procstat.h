// What the kernel tells of a process that runs.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace kelp::test {

// What the daemon may grow by, in KiB, whatever it is offered. A sanitizer keeps what was freed.
inline constexpr int64_t kRoomKb = (KELP_SANITIZED ? 512 : 16) << 10;

// Processor time of all threads, in nanoseconds.
int64_t CpuNs(pid_t pid);

// Resident memory, in KiB.
int64_t ResidentKb(pid_t pid);

// How often the threads of the process were put on a processor, by their own will or not.
int64_t Switches(pid_t pid);

// Whether no thread of the process runs at all for the length of time that counts as idle: two
// seconds, or KELP_IDLE_SECONDS of the test's own environment. What is on its way may end first.
bool StaysIdle(pid_t pid);

}  // namespace kelp::test
