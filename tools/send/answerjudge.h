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
    bool inSilence = false;          // with texts: an answer without a result line may pass
};

// Collects one answer, however it arrives. The answer proper, which alone is judged, begins behind
// the command's echo: the command in front of everything, or on a line of its own, behind a prompt
// without letters and digits or none, that follows only empty lines and reports. A report is an
// unsolicited message: a line "+NAME:..." (or with one of ^ $ # % * in place of the '+') whose name
// is none of those in the command. It is no part of the answer proper, wherever it stands; but
// where the command has no name, as ATI, only those behind the result can be told from what it
// asked for.
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
    // expected, it is an error, or it passes and may do so without a result line. Linear in the
    // answer, as Judge.
    bool MayEndInSilence() const;
    // Of an answer that is complete.
    Verdict Judge() const;

  private:
    struct Parts {
        std::string_view behindEcho;
        std::string proper;
    };

    Parts Split() const;
    bool IsReport(std::string_view line) const;
    // The command has this name in it, or for an empty one any name.
    bool IsAsked(std::string_view name) const;
    // A line that is not whole may be the first part of an echo.
    bool IsEcho(std::string_view line, bool isWhole) const;
    // The last line of a text that is no report; empty when there is none.
    std::string_view ResultLine(std::string_view text) const;
    bool IsError(std::string_view answer) const;

    const std::string mCommand;
    const Expectation mExpectation;
    std::string mAnswer;
};

}  // namespace kelp::tools
