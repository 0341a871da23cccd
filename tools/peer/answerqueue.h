// Pending output of one connection, with its times.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>

#include "peer/answerbytes.h"

namespace kelp::tools {

// The caller passes the time, in milliseconds of MonotonicMs. Answers leave in the order of their
// requests; unsolicited output leaves before answers that have not begun, never inside one.
class AnswerQueue {
  public:
    void AddAnswer(Output output);
    void AddUnsolicited(Output output);

    // The next bytes to write in one piece; empty while nothing is due. Valid until the next call
    // that changes the queue.
    std::string_view Due(int64_t nowMs);
    // `count` bytes of Due() have been written.
    void Sent(size_t count, int64_t nowMs);

    // The time of the next bytes or the next close; -1: none.
    int64_t NextDueMs() const;
    // True when an output that closes has been sent (known after a call of Due): send nothing more.
    bool Ended() const { return mEnded; }
    bool Empty() const { return !mCurrent && mAnswers.empty() && mUnsolicited.empty(); }
    uint64_t WaitingBytes() const { return mWaitingBytes; }
    size_t WaitingOutputs() const { return mAnswers.size() + mUnsolicited.size(); }

  private:
    void Advance(int64_t nowMs);

    std::deque<Output> mAnswers;
    std::deque<Output> mUnsolicited;
    std::optional<Output> mCurrent;
    uint64_t mSent = 0;          // of mCurrent
    int64_t mNextPieceMs = 0;    // of mCurrent
    uint64_t mWaitingBytes = 0;  // of all
    bool mEnded = false;
};

}  // namespace kelp::tools
