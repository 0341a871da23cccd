// Builds the complete answer to a command that the daemon answers itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "main/errorcode.h"

namespace kelp {

class Command;

// A plain value for one command: set the result, the request that was answered and the answer
// text, then GetResponse. One thread at a time.
class Formatter {
  public:
    // 0 or an error code. Without it every answer is the error 6006.
    void SetResult(int32_t result) { mResult = result; }
    // Both append, and ignore a length below 1. The bytes are copied.
    void SetRequest(const char* data, int length);
    void SetResponse(const char* data, int length);

    // True when the stored request begins with the command's request, so that the answer belongs to
    // it.
    bool Matches(const Command& command) const;

    // Replaces the command's response with the complete answer: the echo of its request, the value
    // line or error line, and OK or ERROR. An answer text that contains the stored request is
    // already complete and is sent unchanged. A stored request that does not begin with the
    // command's gives the mismatch answer. Clears request and text; keeps the result.
    void GetResponse(Command* command);

    // Appends the head of a value line: the request from its first '+' up to its first '=' (else
    // '?', else the end), and a ':'. Nothing without a '+'.
    static void GetCmdValueHead(const std::vector<char>& request, std::string& head);

  private:
    void AppendValue(const std::vector<char>& request, std::vector<char>& answer) const;

    int32_t mResult = kErrorResponseNull;
    std::vector<char> mReqCommand;
    std::vector<char> mResCommand;
};

}  // namespace kelp
