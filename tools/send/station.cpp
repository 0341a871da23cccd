#include "send/station.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"

namespace kelp::tools {

namespace {

// A longer answer is a flood: it is cut and the connection closed.
constexpr size_t kMaxAnswerBytes = 64 * 1024 * 1024;
// Limit for unsolicited bytes before a command, so that a flood cannot block it for ever.
constexpr int kMaxUnaskedReads = 1024;

Outcome OutcomeOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::kOk:
            return Outcome::kOk;
        case Verdict::kError:
            return Outcome::kError;
        case Verdict::kUnexpected:
            return Outcome::kUnexpected;
        default:
            return Outcome::kText;
    }
}

}  // namespace

Station::Station(Target target, StationSettings settings)
    : mTarget(std::move(target)), mSettings(std::move(settings)) {}

Exchange Station::Send(const std::string& command, const Listener& unasked, const Listener& heard) {
    Exchange exchange;
    if (mOverdue && !TakeOverdue(exchange, unasked)) {
        return exchange;
    }
    mDeadlineMs = MonotonicMs() + mSettings.timeoutMs;
    if (mFd.Ok()) {
        TakeUnasked(unasked);
    }
    const bool isNew = !mFd.Ok();
    if (!Connect(exchange)) {
        return exchange;
    }
    const bool isTty = isatty(mFd.Get()) == 1;
    AnswerJudge judge(command, mSettings.expectation);
    const std::string line = command + mSettings.terminator;
    const int64_t startMs = MonotonicMs();
    int64_t lastByteMs = startMs;
    exchange.outcome = Converse(judge, line, lastByteMs, heard);
    exchange.answer = judge.Answer();
    exchange.milliseconds = lastByteMs - startMs;
    if (exchange.outcome == Outcome::kLost) {
        const bool atOnce =
            isNew && !isTty && exchange.answer.empty() && MonotonicMs() - startMs < kAtOnceMs;
        exchange.error =
            std::string("the connection ended without an answer") + (atOnce ? kMayBeFull : "");
    }
    if (exchange.outcome == Outcome::kUnexpected || exchange.outcome == Outcome::kTimeOut) {
        exchange.error = judge.Remedy();
    }
    if (exchange.outcome == Outcome::kTimeOut) {
        exchange.milliseconds = MonotonicMs() - startMs;
        Abandon(command, exchange.answer);
    }
    return exchange;
}

// The rest of the answer must not be taken for the next one.
void Station::Abandon(const std::string& command, const std::string& answer) {
    if (isatty(mFd.Get()) == 0) {
        mFd.Reset();
        return;
    }
    // Any text will do, but no report alone.
    const Expectation& expected = mSettings.expectation;
    const bool inSilence = expected.inSilence || expected.texts.empty();
    mOverdue.emplace(command, Expectation{{""}, false, inSilence});
    mOverdue->Append(answer);
}

// False when the overdue answer does not come: then nothing may be sent.
bool Station::TakeOverdue(Exchange& exchange, const Listener& unasked) {
    int64_t lastByteMs = MonotonicMs();
    mDeadlineMs = lastByteMs + mSettings.timeoutMs;
    if (Converse(*mOverdue, {}, lastByteMs, unasked) == Outcome::kTimeOut) {
        exchange.outcome = Outcome::kTimeOut;
        exchange.milliseconds = mSettings.timeoutMs;
        exchange.error = "; it was not sent, because an earlier answer is overdue";
        return false;
    }
    mOverdue.reset();
    return true;
}

bool Station::Connect(Exchange& exchange) {
    if (!mFd.Ok()) {
        mFd = OpenTarget(mTarget, mSettings.timeoutMs, exchange.error);
    }
    return mFd.Ok();
}

Station::Input Station::Read(std::string_view& bytes) {
    static char sBuffer[65536];
    ssize_t n;
    do {
        n = read(mFd.Get(), sBuffer, sizeof(sBuffer));
    } while (n < 0 && errno == EINTR);
    if (n < 0 && errno == EAGAIN) {
        return Input::kNone;
    }
    if (n <= 0) {
        mFd.Reset();
        return Input::kEnd;
    }
    bytes = {sBuffer, static_cast<size_t>(n)};
    return Input::kBytes;
}

void Station::TakeUnasked(const Listener& unasked) {
    std::string_view bytes;
    for (int i = 0; i < kMaxUnaskedReads && Read(bytes) == Input::kBytes; ++i) {
        unasked(bytes);
    }
}

void Station::Write(std::string_view& unsent) {
    if (unsent.empty()) {
        return;
    }
    const ssize_t n = write(mFd.Get(), unsent.data(), unsent.size());
    if (n >= 0) {
        unsent.remove_prefix(static_cast<size_t>(n));
    } else if (errno != EINTR && errno != EAGAIN) {
        // The rest cannot be sent; what the other side sent before it left can still be read.
        unsent = {};
    }
}

Outcome Station::Converse(AnswerJudge& judge, std::string_view unsent, int64_t& lastByteMs,
                          const Listener& heard) {
    for (;;) {
        // Keep reading while writing: the other side may stop reading until its output is read.
        Write(unsent);
        std::string_view bytes;
        const Input input = Read(bytes);
        const int64_t nowMs = MonotonicMs();
        if (input == Input::kBytes) {
            lastByteMs = nowMs;
            judge.Append(bytes);
            heard(bytes);
            if (judge.Answer().size() > kMaxAnswerBytes) {
                mFd.Reset();
            }
        }
        if (judge.IsFinal() || !mFd.Ok()) {
            return judge.IsEmpty() ? Outcome::kLost : OutcomeOf(judge.Judge());
        }
        const int64_t quietMs = lastByteMs + mSettings.quietMs;
        const bool isQuiet = unsent.empty() && mSettings.quietMs > 0 && nowMs >= quietMs;
        if (isQuiet && judge.MayEndInSilence()) {
            return OutcomeOf(judge.Judge());
        }
        if (nowMs >= mDeadlineMs) {
            return Outcome::kTimeOut;
        }
        const short events = static_cast<short>(POLLIN | (unsent.empty() ? 0 : POLLOUT));
        const int64_t untilMs = nowMs < quietMs ? std::min(quietMs, mDeadlineMs) : mDeadlineMs;
        Thread::WaitFd(mFd.Get(), events, static_cast<int>(untilMs - nowMs));
    }
}

}  // namespace kelp::tools
