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

    // Whether the stored request begins with the command's: whether the answer is to it.
    bool Matches(const Command& command) const;

    // Replaces the command's response with the whole answer: the echo of its request, the value
    // line or error line, and OK or ERROR. An answer text that contains the request is a whole
    // answer itself and goes out as it is. A stored request that does not begin with the command's
    // gives the mismatch answer. Request and text are empty afterwards; the result stays.
    void GetResponse(Command* command);

    // Appends what a value line begins with: the request from its first '+' up to its first '='
    // (else '?', else the end), and a ':'. Nothing without a '+'.
    static void GetCmdValueHead(const std::vector<char>& request, std::string& head);

  private:
    void AppendValue(const std::vector<char>& request, std::vector<char>& answer) const;

    int32_t mResult = kErrorResponseNull;
    std::vector<char> mReqCommand;
    std::vector<char> mResCommand;
};

}  // namespace kelp
