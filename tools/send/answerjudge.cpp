#include "send/answerjudge.h"

#include <algorithm>
#include <utility>

namespace kelp::tools {

namespace {

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool BeginsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

std::string_view WithoutLineEnds(std::string_view text) {
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}

std::string_view LastLine(std::string_view text) {
    text = WithoutLineEnds(text);
    return text.substr(text.find_last_of("\r\n") + 1);
}

}  // namespace

AnswerJudge::AnswerJudge(std::string command, std::string expected)
    : mCommand(std::move(command)), mExpected(std::move(expected)) {}

void AnswerJudge::Append(std::string_view bytes) {
    const size_t searched = mAnswer.size() - std::min(mAnswer.size(), mExpected.size());
    mAnswer += bytes;
    mFound = mFound || (!mExpected.empty() && mAnswer.find(mExpected, searched) != mAnswer.npos);
}

bool AnswerJudge::IsFinal() const {
    return EndsWith(mAnswer, "\r\nOK\r\n") || EndsWith(mAnswer, "\r\nERROR\r\n");
}

bool AnswerJudge::IsOnlyEcho() const {
    return BeginsWith(mCommand, WithoutLineEnds(mAnswer));
}

bool AnswerJudge::MayEndInSilence() const {
    return mExpected.empty() ? !IsOnlyEcho() : mFound;
}

Verdict AnswerJudge::Judge() const {
    if (!mExpected.empty()) {
        return mFound ? Verdict::kOk : Verdict::kUnexpected;
    }
    const std::string_view last = LastLine(mAnswer);
    if (last == "OK") {
        return Verdict::kOk;
    }
    const bool failed =
        last == "ERROR" || BeginsWith(last, "+CME ERROR") || BeginsWith(last, "+CMS ERROR");
    return failed ? Verdict::kError : Verdict::kText;
}

}  // namespace kelp::tools
