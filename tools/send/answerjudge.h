// When an answer is complete, and what it says.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelp::tools {

enum class Verdict {
    kOk,
    kError,
    kText,        // neither OK nor an error at its end
    kUnexpected,  // not what was expected
};

// What makes an answer pass. Without texts it is an answer that ends in OK.
struct Expectation {
    std::vector<std::string> texts;  // all of them, in the answer proper
    bool error = false;              // with texts: the command must be refused, else it must not be
};

// Collects one answer, however it arrives. The answer proper, which alone is judged, begins behind
// the command's echo: the command in front of everything, or on a line of its own that follows only
// empty lines and reports. A report is an unsolicited message: a line "+NAME:..." (or with one of
// ^ $ # % * in place of the '+') whose name is not in the command. Those before any other text and
// those behind the result are no part of the answer proper.
class AnswerJudge {
  public:
    AnswerJudge(std::string command, Expectation expectation);

    void Append(std::string_view bytes) { mAnswer += bytes; }
    const std::string& Answer() const { return mAnswer; }  // all that came

    // Nothing came but echo and empty lines.
    bool IsEmpty() const;
    // It ends in a result line between CR LFs: OK, ERROR, +CME ERROR... or +CMS ERROR...; reports
    // may follow. Looks at no more than the last KiB.
    bool IsFinal() const;
    // Silence means that it is complete: there is more than an echo and, where something is
    // expected, it passes or is an error. Linear in the answer, as Judge.
    bool MayEndInSilence() const;
    // Of an answer that is complete.
    Verdict Judge() const;

  private:
    struct Parts {
        std::string_view behindEcho;
        std::string_view proper;
    };

    Parts Split() const;
    bool IsReport(std::string_view line) const;
    // The last line of a text that is no report; empty when there is none.
    std::string_view ResultLine(std::string_view text) const;
    bool IsError(std::string_view answer) const;

    const std::string mCommand;
    const Expectation mExpectation;
    std::string mAnswer;
};

}  // namespace kelp::tools
