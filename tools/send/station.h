// A test station: sends commands and receives their answers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/uniquefd.h"
#include "send/answerjudge.h"
#include "send/stationlink.h"

namespace kelp::tools {

struct StationSettings {
    std::string terminator = "\r\n";
    Expectation expectation;
    int timeoutMs = 10000;  // for one command, including the connect
    int quietMs = 500;      // silence that ends an answer without a result line; 0: never
};

enum class Outcome { kOk, kError, kText, kUnexpected, kTimeOut, kLost, kNoConnection };

struct Exchange {
    Outcome outcome = Outcome::kNoConnection;
    std::string answer;        // all received bytes, whatever the outcome
    std::string error;         // the reason of kNoConnection and kLost; a remedy for the others
    int64_t milliseconds = 0;  // from sending to the last received byte
};

// One thread. The first command connects, and the connection is kept. The next command reconnects
// after a lost connection or an overdue answer. A tty is kept: the next command waits for the
// overdue answer and is sent after it, or not at all. Opening a tty drops the bytes it has
// received: they answer an earlier command.
class Station {
  public:
    Station(Target target, StationSettings settings);

    // Called with bytes as they arrive, inside Send.
    using Listener = std::function<void(std::string_view)>;

    // Waits for an overdue answer, sends a command and waits for its answer, each at most for the
    // time-out. `unasked` gets the bytes that arrived before the command was sent.
    Exchange Send(const std::string& command, const Listener& unasked, const Listener& heard);

  private:
    enum class Input { kNone, kBytes, kEnd };

    bool Connect(Exchange& exchange);
    Input Read(std::string_view& bytes);
    void Abandon(const std::string& command, const std::string& answer);
    bool TakeOverdue(Exchange& exchange, const Listener& unasked);
    void TakeUnasked(const Listener& unasked);
    void Write(std::string_view& unsent);
    Outcome Converse(AnswerJudge& judge, std::string_view unsent, int64_t& lastByteMs,
                     const Listener& heard);

    const Target mTarget;
    const StationSettings mSettings;
    UniqueFd mFd;
    std::optional<AnswerJudge> mOverdue;  // on the open tty
    int64_t mDeadlineMs = 0;              // of the answer, in MonotonicMs
};

}  // namespace kelp::tools
