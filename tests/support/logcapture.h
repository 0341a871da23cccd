// The log records that this process writes, for tests of their texts.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "platform/uniquefd.h"
#include "support/tempdir.h"

namespace kelp::test {

// Redirects standard error during its lifetime. Records of other threads are captured too; create
// and destroy it while they do not log.
class LogCapture : private TempDir {
  public:
    LogCapture() : mSaved(dup(STDERR_FILENO)), mFile(Write("log", "")) {
        dup2(UniqueFd(open(Path("log").c_str(), O_WRONLY | O_APPEND)).Get(), STDERR_FILENO);
    }
    ~LogCapture() { dup2(mSaved.Get(), STDERR_FILENO); }

    // The records since the last call, each as "S FUNCTION: TEXT" with S the letter of its severity
    // (D, I, E); other lines are returned unchanged.
    std::vector<std::string> Take() {
        static const std::regex kHeader("^.*?([DIE]) KELP    : ");
        std::vector<std::string> records;
        for (std::string line; std::getline(mFile, line);) {
            records.push_back(std::regex_replace(line, kHeader, "$1 "));
        }
        mFile.clear();
        return records;
    }

  private:
    UniqueFd mSaved;
    std::ifstream mFile;
};

}  // namespace kelp::test
