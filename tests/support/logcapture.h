// The log records that this process writes, for tests of their texts.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/uniquefd.h"

namespace kelp {

// Takes over standard error while it lives. Records of other threads are captured too; start and
// end it while they are quiet.
class LogCapture {
  public:
    LogCapture() : mSaved(dup(STDERR_FILENO)), mFile(tmpfile()) {
        dup2(fileno(mFile), STDERR_FILENO);
    }
    ~LogCapture() {
        dup2(mSaved.Get(), STDERR_FILENO);
        fclose(mFile);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The records since the last call, each as "S FUNCTION: TEXT" with S the letter of its severity
    // (D, I, E); what is no record comes as it is.
    std::vector<std::string> Take() {
        static constexpr char kTag[] = " KELP    : ";
        std::vector<std::string> records;
        std::string line;
        char c;
        while (pread(fileno(mFile), &c, 1, mTaken) == 1) {
            ++mTaken;
            if (c != '\n') {
                line += c;
                continue;
            }
            const size_t tag = line.find(kTag);
            if (tag != std::string::npos && tag > 0) {
                line = line.substr(tag - 1, 2) + line.substr(tag + sizeof(kTag) - 1);
            }
            records.push_back(line);
            line.clear();
        }
        return records;
    }

  private:
    UniqueFd mSaved;
    FILE* const mFile;
    off_t mTaken = 0;
};

}  // namespace kelp
