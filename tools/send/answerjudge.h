// When an answer is complete, and what it says.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelp::tools {

enum class Verdict {
    kOk,
    kError,
    kText,        // neither OK nor ERROR at its end
    kUnexpected,  // without the expected text
};

// Pure. Collects one answer, in linear time however it arrives.
class AnswerJudge {
  public:
    // An empty `expected` expects nothing in particular.
    AnswerJudge(std::string command, std::string expected);

    void Append(std::string_view bytes);
    const std::string& Answer() const { return mAnswer; }

    // It ends in CR LF OK CR LF or CR LF ERROR CR LF.
    bool IsFinal() const;
    // Silence from now on means that it is complete: it has the expected text, or nothing is
    // expected and it is more than the command's own echo.
    bool MayEndInSilence() const;
    // Of an answer that is complete. With an expected text only that counts.
    Verdict Judge() const;

  private:
    bool IsOnlyEcho() const;

    const std::string mCommand;
    const std::string mExpected;
    std::string mAnswer;
    bool mFound = false;  // mExpected in mAnswer
};

}  // namespace kelp::tools
