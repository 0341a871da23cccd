#include "send/answerjudge.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "main/errorcode.h"

namespace kelp::tools {

namespace {

constexpr char kLineEnds[] = "\r\n";
constexpr size_t kMaxTailBytes = 1024;  // the last lines are searched within this

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

// Peers may echo a command in another case.
bool SameText(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool IsErrorLine(std::string_view line) {
    return line == "ERROR" || BeginsWith(line, "+CME ERROR:") || BeginsWith(line, "+CMS ERROR:");
}

bool IsResultLine(std::string_view line) {
    return line == "OK" || IsErrorLine(line);
}

bool IsAlnum(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0;
}

bool HasAlnums(std::string_view text) {
    return std::any_of(text.begin(), text.end(), IsAlnum);
}

std::string_view WithoutBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

// Length of the "+NAME" at the start of a text; 0 if there is none.
size_t NameLength(std::string_view text) {
    if (text.size() < 2 || !Contains("+^$#%*", text.substr(0, 1)) || !IsAlnum(text[1]) ||
        isdigit(static_cast<unsigned char>(text[1])) != 0) {
        return 0;
    }
    size_t length = 2;
    while (length < text.size() && (IsAlnum(text[length]) || text[length] == '_')) {
        ++length;
    }
    return length;
}

}  // namespace

AnswerJudge::AnswerJudge(std::string command, Expectation expectation)
    : mCommand(std::move(command)), mExpectation(std::move(expectation)) {}

bool AnswerJudge::IsReport(std::string_view line) const {
    const std::string_view name = line.substr(0, line.find(':'));
    return name.size() < line.size() && NameLength(name) == name.size() && !IsAsked(name);
}

bool AnswerJudge::IsAsked(std::string_view name) const {
    const std::string_view command = mCommand;
    for (size_t at = 0; at < command.size(); ++at) {
        const size_t length = NameLength(command.substr(at));
        if (length > 0 && (name.empty() || SameText(command.substr(at, length), name))) {
            return true;
        }
    }
    return false;
}

bool AnswerJudge::IsEcho(std::string_view line, bool isWhole) const {
    const std::string_view command = WithoutBlanks(mCommand);
    line = WithoutBlanks(line);
    if (command.empty() || line.empty() || IsResultLine(line)) {
        return false;
    }
    const size_t at = line.size() - std::min(line.size(), command.size());
    if (SameText(line.substr(at), command)) {
        return !HasAlnums(line.substr(0, at));  // a prompt, or nothing
    }
    const size_t first = std::find_if(line.begin(), line.end(), IsAlnum) - line.begin();
    const std::string_view typed = line.substr(first);
    return !isWhole && (SameText(line, command.substr(0, line.size())) ||
                        (!typed.empty() && SameText(typed, command.substr(0, typed.size()))));
}

AnswerJudge::Parts AnswerJudge::Split() const {
    const std::string_view answer = mAnswer;
    const size_t common = std::min(answer.size(), mCommand.size());
    const bool isEchoed = SameText(answer.substr(0, common), mCommand.substr(0, common));
    const std::string_view last = ResultLine(answer);
    const size_t resultAt =
        IsResultLine(last) ? static_cast<size_t>(last.data() - answer.data()) : answer.size();
    Parts parts;
    size_t echoEnd = isEchoed ? common : 0;
    size_t end = echoEnd;  // of the bytes already in the parts
    bool isText = false;   // a line that is neither echo nor report was found
    for (size_t at = echoEnd; (at = answer.find_first_not_of(kLineEnds, at)) != answer.npos;) {
        const size_t lineEnd = std::min(answer.find_first_of(kLineEnds, at), answer.size());
        const std::string_view line = answer.substr(at, lineEnd - at);
        if (!isText && IsEcho(line, lineEnd < answer.size())) {
            echoEnd = lineEnd;
            parts.proper.clear();
        } else if (IsReport(line) && (at > resultAt || IsAsked({}))) {
            // Taken out with the CR LF before it; the one after it stays for the next line.
            parts.reports += answer.substr(end, lineEnd - end);
        } else {
            isText = true;
            parts.proper += answer.substr(end, lineEnd - end);
        }
        at = end = lineEnd;
    }
    parts.proper += answer.substr(end);
    parts.afterEcho = answer.substr(echoEnd);
    return parts;
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
    return IsBlank(Split().afterEcho);
}

bool AnswerJudge::IsFinal() const {
    const std::string_view line = ResultLine(mAnswer);
    const auto offset = static_cast<size_t>(line.data() - mAnswer.data());
    return IsResultLine(line) && offset >= 2 && mAnswer.compare(offset - 2, 2, kLineEnds) == 0 &&
           mAnswer.compare(offset + line.size(), 2, kLineEnds) == 0 && EndsWith(mAnswer, kLineEnds);
}

bool AnswerJudge::MayEndInSilence() const {
    const Parts parts = Split();
    if (IsBlank(parts.afterEcho) || mExpectation.texts.empty()) {
        return !IsBlank(parts.afterEcho);
    }
    return IsError(parts.afterEcho) ||
           (mExpectation.inSilence && !IsBlank(parts.proper) && Judge() == Verdict::kOk);
}

bool AnswerJudge::IsError(std::string_view answer) const {
    const std::string_view line = ResultLine(answer);
    // When a peer fails, the daemon's error text is the answer, or follows a part of one.
    bool hasErrorText = Contains(answer, "Unsupport command");
    for (const ErrorText& row : kErrorTexts) {
        hasErrorText = hasErrorText || EndsWith(line, row.text);
    }
    return hasErrorText || IsErrorLine(line);
}

Verdict AnswerJudge::Judge() const {
    const Parts parts = Split();
    const bool error = IsError(parts.afterEcho);
    if (error && !mExpectation.error) {
        return Verdict::kError;
    }
    if (mExpectation.texts.empty()) {
        return ResultLine(parts.afterEcho) == "OK" ? Verdict::kOk : Verdict::kText;
    }
    bool found = error == mExpectation.error;
    for (const std::string& text : mExpectation.texts) {
        found = found && Contains(parts.proper, text);
    }
    return found ? Verdict::kOk : Verdict::kUnexpected;
}

std::string AnswerJudge::Remedy() const {
    const Parts parts = Split();
    for (const std::string& text : mExpectation.texts) {
        if (!Contains(parts.proper, text) && Contains(parts.reports, text)) {
            return "; " + Quoted(text) + " is only in an unsolicited report";
        }
    }
    const bool wouldPass = !mExpectation.texts.empty() && Judge() == Verdict::kOk;
    return wouldPass ? "; an answer without a result line needs --quiet" : "";
}

}  // namespace kelp::tools
