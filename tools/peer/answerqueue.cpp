#include "peer/answerqueue.h"

#include <algorithm>
#include <utility>

namespace kelp::tools {

void AnswerQueue::AddAnswer(Output output) {
    mWaitingBytes += output.total;
    mAnswers.push_back(std::move(output));
}

void AnswerQueue::AddUnsolicited(Output output) {
    mWaitingBytes += output.total;
    mUnsolicited.push_back(std::move(output));
}

void AnswerQueue::Advance(int64_t nowMs) {
    while (!mEnded) {
        if (mCurrent && mSent < mCurrent->total) {
            return;
        }
        if (mCurrent) {
            mEnded = mCurrent->close;
            mCurrent.reset();
            continue;
        }
        std::deque<Output>& next = mUnsolicited.empty() ? mAnswers : mUnsolicited;
        if (next.empty() || next.front().dueMs > nowMs) {
            return;
        }
        mCurrent = std::move(next.front());
        next.pop_front();
        mSent = 0;
        mNextPieceMs = 0;
    }
}

std::string_view AnswerQueue::Due(int64_t nowMs) {
    Advance(nowMs);
    if (mEnded || !mCurrent || mNextPieceMs > nowMs) {
        return {};
    }
    const std::string& pattern = mCurrent->pattern;
    const size_t offset = static_cast<size_t>(mSent % pattern.size());
    uint64_t length = std::min<uint64_t>(pattern.size() - offset, mCurrent->total - mSent);
    if (mCurrent->pieceBytes > 0) {
        length = std::min(length, mCurrent->pieceBytes - mSent % mCurrent->pieceBytes);
    }
    return std::string_view(pattern).substr(offset, static_cast<size_t>(length));
}

void AnswerQueue::Sent(size_t count, int64_t nowMs) {
    mSent += count;
    mWaitingBytes -= count;
    if (mCurrent->pieceBytes > 0 && mSent % mCurrent->pieceBytes == 0) {
        mNextPieceMs = nowMs + mCurrent->pauseMs;
    }
}

int64_t AnswerQueue::NextDueMs() const {
    if (mCurrent) {
        return mNextPieceMs;
    }
    if (!mUnsolicited.empty()) {
        return mUnsolicited.front().dueMs;
    }
    return mAnswers.empty() ? -1 : mAnswers.front().dueMs;
}

}  // namespace kelp::tools
