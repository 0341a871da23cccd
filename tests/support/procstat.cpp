#include "support/procstat.h"

#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "support/wait.h"

namespace kelp::test {

namespace {

// The sum of the values of all lines of a status file whose key ends with `key`.
int64_t Sum(const std::filesystem::path& directory, const std::string& key) {
    std::ifstream file(directory / "status");
    int64_t sum = 0;
    for (std::string line; std::getline(file, line);) {
        const size_t at = line.find(key);
        if (at != std::string::npos) {
            sum += strtoll(line.c_str() + at + key.size(), nullptr, 10);
        }
    }
    return sum;
}

}  // namespace

int64_t CpuNs(pid_t pid) {
    clockid_t clock;
    struct timespec used = {};
    clock_getcpuclockid(pid, &clock);
    clock_gettime(clock, &used);
    return static_cast<int64_t>(used.tv_sec) * 1000000000 + used.tv_nsec;
}

int64_t ResidentKb(pid_t pid) {
    return Sum("/proc/" + std::to_string(pid), "VmRSS:");
}

int64_t Switches(pid_t pid) {
    int64_t sum = 0;
    std::error_code gone;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        sum += Sum(task.path(), "voluntary_ctxt_switches:");
    }
    return sum;
}

bool StaysIdle(pid_t pid) {
    const char* const seconds = getenv("KELP_IDLE_SECONDS");
    const long idleMs = seconds != nullptr ? strtol(seconds, nullptr, 10) * 1000 : 2000;
    // Beside other load, what went on before may take longer to end: the first quiet time counts.
    return WaitUntil([&] {
        const int64_t before = Switches(pid);
        Thread::SleepMs(static_cast<int>(idleMs));
        return Switches(pid) == before;
    });
}

}  // namespace kelp::test
