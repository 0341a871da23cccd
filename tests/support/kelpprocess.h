// The built daemon as a process of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/tempdir.h"

namespace kelp::test {

class KelpProcess {
  public:
    // Starts the daemon with `arguments`, and `environment` ("NAME=value") on top of the test's
    // own.
    explicit KelpProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});
    // Kills it if it still runs.
    ~KelpProcess();
    KelpProcess(const KelpProcess&) = delete;
    KelpProcess& operator=(const KelpProcess&) = delete;

    pid_t Pid() const { return mPid; }
    // Every whole line that it has written to standard error so far.
    const std::string& Log();
    // How often `text` is in the log.
    int Logged(const std::string& text);
    // Waits until it is there `count` times.
    bool WaitForLog(const std::string& text, int count = 1);
    bool Running() const;
    // Waits for its end; the status as waitpid gives it, or -1.
    int WaitForExit();

    // Open descriptors, threads, and processor time used, in milliseconds.
    size_t Descriptors() const { return CountEntries("fd"); }
    size_t Threads() const { return CountEntries("task"); }
    int64_t CpuMs() const;

  private:
    size_t CountEntries(const char* directory) const;

    const TempDir mDir;
    const std::string mLogPath = mDir.Path("log");
    std::string mLog;
    pid_t mPid = -1;
};

}  // namespace kelp::test
