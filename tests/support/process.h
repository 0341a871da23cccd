// A program as a child process.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kelp::test {

class Process {
  public:
    // Runs words[0], looked up in PATH, as the leader of a process group, with what it writes
    // appended to the file `output`. One that cannot be executed ends at once.
    Process(const std::vector<std::string>& words, const std::string& output);
    // Kills the group.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t Pid() const { return mPid; }
    bool Running() const;
    // Waits for its end; returns the status of waitpid, or -1.
    int WaitForExit();

    // Number of open descriptors, and of threads.
    size_t Descriptors() const { return CountEntries("fd"); }
    size_t Threads() const { return CountEntries("task"); }

  private:
    size_t CountEntries(const char* directory) const;

    pid_t mPid = -1;
};

}  // namespace kelp::test
