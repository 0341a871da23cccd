#include "send/answerjudge.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "main/errorcode.h"

namespace kelp::tools {

namespace {

constexpr char kLineEnds[] = "\r\n";
constexpr size_t kMaxTailBytes = 1024;  // within which the last lines are looked for

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool BeginsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(kLineEnds) == text.npos;
}

// The peers' echoes need not keep to the case in which a command was typed.
bool SameText(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool IsErrorLine(std::string_view line) {
    return line == "ERROR" || BeginsWith(line, "+CME ERROR:") || BeginsWith(line, "+CMS ERROR:");
}

bool IsResultLine(std::string_view line) {
    return line == "OK" || IsErrorLine(line);
}

}  // namespace

AnswerJudge::AnswerJudge(std::string command, Expectation expectation)
    : mCommand(std::move(command)), mExpectation(std::move(expectation)) {}

bool AnswerJudge::IsReport(std::string_view line) const {
    const std::string_view name = line.substr(0, line.find(':'));
    return name.size() > 1 && name.size() < line.size() && Contains("+^$#%*", name.substr(0, 1)) &&
           name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_", 1) == name.npos &&
           strcasestr(mCommand.c_str(), std::string(name).c_str()) == nullptr;
}

AnswerJudge::Parts AnswerJudge::Split() const {
    const std::string_view answer = mAnswer;
    const std::string_view start = answer.substr(0, mCommand.size());
    size_t echoEnd = !mCommand.empty() && SameText(start, mCommand) ? mCommand.size() : 0;
    size_t reportsEnd = echoEnd;
    for (size_t at = echoEnd; (at = answer.find_first_not_of(kLineEnds, at)) != answer.npos;) {
        const size_t lineEnd = std::min(answer.find_first_of(kLineEnds, at), answer.size());
        const std::string_view line = answer.substr(at, lineEnd - at);
        if (SameText(line, mCommand)) {
            echoEnd = lineEnd;
        } else if (!IsReport(line)) {
            // Reports and nothing but a result: they are what the command asked for.
            reportsEnd = IsResultLine(line) ? echoEnd : reportsEnd;
            break;
        }
        reportsEnd = lineEnd;
        at = lineEnd;
    }
    const std::string_view last = ResultLine(answer);
    const auto lastEnd = static_cast<size_t>(last.data() - answer.data()) + last.size();
    const size_t end = std::max(IsResultLine(last) ? lastEnd + 2 : answer.size(), reportsEnd);
    return {answer.substr(echoEnd), answer.substr(reportsEnd, end - reportsEnd)};
}

std::string_view AnswerJudge::ResultLine(std::string_view text) const {
    text = text.substr(text.size() - std::min(text.size(), kMaxTailBytes));
    for (;;) {
        text = text.substr(0, text.find_last_not_of(kLineEnds) + 1);
        const std::string_view line = text.substr(text.find_last_of(kLineEnds) + 1);
        if (!IsReport(line)) {
            return line;
        }
        text.remove_suffix(line.size());
    }
}

bool AnswerJudge::IsEmpty() const {
    const std::string_view answer = mAnswer;
    const std::string_view line = answer.substr(0, answer.find_last_not_of(kLineEnds) + 1);
    return SameText(line, std::string_view(mCommand).substr(0, line.size())) ||
           IsBlank(Split().behindEcho);
}

bool AnswerJudge::IsFinal() const {
    const std::string_view line = ResultLine(mAnswer);
    const auto offset = static_cast<size_t>(line.data() - mAnswer.data());
    return IsResultLine(line) && offset >= 2 && mAnswer.compare(offset - 2, 2, kLineEnds) == 0 &&
           mAnswer.compare(offset + line.size(), 2, kLineEnds) == 0 && EndsWith(mAnswer, kLineEnds);
}

bool AnswerJudge::MayEndInSilence() const {
    return !IsEmpty() && (mExpectation.texts.empty() ||
                          (!IsBlank(Split().proper) && Judge() != Verdict::kUnexpected));
}

bool AnswerJudge::IsError(std::string_view answer) const {
    const std::string_view line = ResultLine(answer);
    // Where a peer failed, the daemon's own text is the answer, or the end of a piece of one.
    bool told = Contains(answer, "Unsupport command");
    for (const ErrorText& row : kErrorTexts) {
        told = told || EndsWith(line, row.text);
    }
    return told || IsErrorLine(line);
}

Verdict AnswerJudge::Judge() const {
    const Parts parts = Split();
    const bool error = IsError(parts.behindEcho);
    if (error && !mExpectation.error) {
        return Verdict::kError;
    }
    if (mExpectation.texts.empty()) {
        return ResultLine(parts.behindEcho) == "OK" ? Verdict::kOk : Verdict::kText;
    }
    bool found = error == mExpectation.error;
    for (const std::string& text : mExpectation.texts) {
        found = found && Contains(parts.proper, text);
    }
    return found ? Verdict::kOk : Verdict::kUnexpected;
}

}  // namespace kelp::tools
