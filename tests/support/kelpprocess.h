// The built daemon as a child process.
#pragma once

#include <string>
#include <vector>

#include "support/process.h"
#include "support/tempdir.h"

namespace kelp::test {

// Number of occurrences of `text` in `log`.
int Occurrences(const std::string& log, const std::string& text);

class KelpProcess : private TempDir, public Process {
  public:
    // Starts the daemon with `arguments`, and `environment` ("NAME=value") on top of the test's
    // own.
    explicit KelpProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});

    // All complete lines that it has written to standard error so far.
    const std::string& Log();
    int Logged(const std::string& text) { return Occurrences(Log(), text); }
    // Waits until the log has `text` at least `count` times.
    bool WaitForLog(const std::string& text, int count = 1);

  private:
    std::string mLog;
};

}  // namespace kelp::test
