// Decides when an answer is complete, and its result.
#pragma once

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

// The condition for an answer to pass. Without texts: it ends in OK.
struct Expectation {
    std::vector<std::string> texts;  // all must be in the answer proper
    bool error = false;              // with texts: the command must be refused, else it must not be
    bool inSilence = false;          // with texts: an answer without a result line may pass
};

// Collects one answer, in any number of pieces. Only the answer proper is judged: everything after
// the echo of the command, without reports. The echo is the command at the start of the answer, or
// alone on a line with only empty lines and reports before it; on that line a prompt without
// letters and digits may precede it. A report is an unsolicited message: a line "+NAME:..." (or
// with one of ^ $ # % * in place of the '+') whose name does not occur in the command. If the
// command has no name, as in ATI, only lines after the result are recognised as reports.
class AnswerJudge {
  public:
    AnswerJudge(std::string command, Expectation expectation);

    void Append(std::string_view bytes) { mAnswer += bytes; }
    const std::string& Answer() const { return mAnswer; }  // all received bytes

    // Only echo and empty lines were received.
    bool IsEmpty() const;
    // It ends in a result line between CR LFs: OK, ERROR, +CME ERROR... or +CMS ERROR...; reports
    // may follow. Checks only the last KiB.
    bool IsFinal() const;
    // Silence completes the answer: there is more than an echo and, with an expectation, it is an
    // error, or it passes and needs no result line. Linear in the answer, like Judge.
    bool MayEndInSilence() const;
    // For a complete answer.
    Verdict Judge() const;
    // For an answer that is incomplete or not as expected: "; " and what helps, or empty.
    std::string Remedy() const;

  private:
    struct Parts {
        std::string_view afterEcho;
        std::string proper;
        std::string reports;
    };

    Parts Split() const;
    bool IsReport(std::string_view line) const;
    // The command contains this name; for an empty one, any name.
    bool IsAsked(std::string_view name) const;
    // An incomplete line may be the beginning of an echo.
    bool IsEcho(std::string_view line, bool isWhole) const;
    // The last line of a text that is no report; empty if none.
    std::string_view ResultLine(std::string_view text) const;
    bool IsError(std::string_view answer) const;

    const std::string mCommand;
    const Expectation mExpectation;
    std::string mAnswer;
};

}  // namespace kelp::tools
