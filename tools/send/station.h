// A test station: sends commands and takes their answers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/uniquefd.h"
#include "send/answerjudge.h"
#include "send/stationlink.h"

namespace kelp::tools {

struct StationSettings {
    std::string terminator = "\r\n";
    Expectation expectation;
    int timeoutMs = 10000;  // for one command, connecting included
    int quietMs = 500;      // silence that completes an answer without a result line; 0: none does
};

enum class Outcome { kOk, kError, kText, kUnexpected, kTimeOut, kLost, kNoConnection };

struct Exchange {
    Outcome outcome = Outcome::kNoConnection;
    std::string answer;        // all that came, of whatever outcome
    std::string error;         // the reason of kNoConnection and kLost
    int64_t milliseconds = 0;  // from the sending to the last byte that came
};

// One thread. The connection is made by the first command and kept; one that was lost, or (but for
// a tty) one on which an answer is overdue, is made anew by the next. Opening a tty drops what it
// had received by then: an answer to somebody else.
class Station {
  public:
    Station(Target target, StationSettings settings);

    // Called with bytes as they arrive, inside of Send.
    using Listener = std::function<void(std::string_view)>;

    // Sends a command and waits for its answer, for at most the time-out. `unasked` gets what had
    // arrived since the last answer.
    Exchange Send(const std::string& command, const Listener& unasked, const Listener& heard);

  private:
    enum class Input { kNone, kBytes, kEnd };

    bool Connect(Exchange& exchange);
    Input Read(std::string_view& bytes);
    void TakeUnasked(const Listener& unasked);
    void Write(std::string_view& unsent);
    Outcome Converse(AnswerJudge& judge, std::string_view unsent, int64_t& lastByteMs,
                     const Listener& heard);

    const Target mTarget;
    const StationSettings mSettings;
    UniqueFd mFd;
    int64_t mDeadlineMs = 0;  // of the command, in MonotonicMs
};

}  // namespace kelp::tools
