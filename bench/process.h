// A child process under measurement, and what the kernel counts about it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kelp::bench {

// Owns one child, which leads a process group of its own; the group ends with the object.
class Process {
  public:
    Process() = default;
    ~Process() { Stop(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Runs argv[0] (looked up in PATH) with both outputs going to `output`, and with `environment`
    // (NAME=VALUE each) added. False when it cannot be forked; a program that cannot be executed
    // shows as one that ends at once.
    bool Start(const std::vector<std::string>& argv, const std::string& output,
               const std::vector<std::string>& environment = {});
    // SIGTERM to the group, after a second SIGKILL; returns when the child is reaped.
    void Stop(int signal = 15);
    bool Running();
    pid_t Pid() const { return mPid; }
    int64_t StartedNs() const { return mStartedNs; }  // NowNs() just before it was forked
    // The child and its own children: a relay may fork per client.
    std::vector<pid_t> Tree() const;

  private:
    pid_t mPid = -1;
    int64_t mStartedNs = 0;
};

// User and system time.
int64_t CpuNs(const std::vector<pid_t>& pids);
// Context switches, voluntary and not. Asks thread by thread, which takes as long as many commands.
int64_t Switches(const std::vector<pid_t>& pids);

struct Footprint {
    long rssKib = 0;
    long pssKib = 0;  // proportional: shared pages divided by those who share
    int threads = 0;
};
Footprint ReadFootprint(const std::vector<pid_t>& pids);

// Restricts the calling thread, and what it starts from now on, to one core; -1: all that the
// program began with. The second form does the same to every thread of a process.
void Pin(int core);
void PinProcess(pid_t pid, int core);
// The highest core that this program may use.
int LastCore();

int64_t NowNs();  // CLOCK_MONOTONIC

}  // namespace kelp::bench
