// The built daemon as a process of its own.
#pragma once

#include <string>
#include <vector>

#include "support/process.h"
#include "support/tempdir.h"

namespace kelp::test {

// How often `text` is in `log`.
int Occurrences(const std::string& log, const std::string& text);

class KelpProcess : private TempDir, public Process {
  public:
    // Starts the daemon with `arguments`, and `environment` ("NAME=value") on top of the test's
    // own.
    explicit KelpProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});

    // Every whole line that it has written to standard error so far.
    const std::string& Log();
    int Logged(const std::string& text) { return Occurrences(Log(), text); }
    // Waits until it is there `count` times.
    bool WaitForLog(const std::string& text, int count = 1);

  private:
    std::string mLog;
};

}  // namespace kelp::test
