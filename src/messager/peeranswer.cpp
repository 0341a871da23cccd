#include "messager/peeranswer.h"

#include <algorithm>

#include "platform/clock.h"

namespace kelp {

namespace {

constexpr size_t kLongAnswerBytes = 4096;
constexpr int kLongQuietMs = 20;
constexpr int64_t kMaxReadOnMs = 30000;
constexpr int64_t kRateWindowMs = 1000;
constexpr size_t kMinRateBytes = 4096;

// True when the whole answer was read: the peer closed the connection or was quiet.
bool ReadOn(LocalSocketClient& client, std::vector<char>& bytes, size_t maxSize, int64_t deadlineMs,
            const AnswerEnd& end) {
    const int quietMs = end.quietMs > 0 ? end.quietMs : kLongQuietMs;
    int64_t nowMs = MonotonicMs();
    if (end.quietMs > 0) {
        deadlineMs = std::min(deadlineMs, nowMs + kMaxReadOnMs);
    }
    int64_t secondMs = nowMs;  // begin of the second whose rate is measured
    size_t secondBytes = bytes.size();
    while (bytes.size() < maxSize && nowMs < deadlineMs) {
        if (deadlineMs == LocalSocketClient::kNoDeadline && nowMs - secondMs >= kRateWindowMs) {
            if (bytes.size() - secondBytes < kMinRateBytes) {
                return false;
            }
            secondMs = nowMs;
            secondBytes = bytes.size();
        }
        const int waitMs = static_cast<int>(std::min<int64_t>(quietMs, deadlineMs - nowMs));
        const LocalResult result = client.sreceive(bytes, {waitMs / 1000, waitMs % 1000 * 1000});
        if (result == LocalResult::kLost) {
            return true;  // reported by the next call
        }
        if (result != LocalResult::kDone) {
            return result == LocalResult::kTimeOut && waitMs == quietMs;
        }
        nowMs = MonotonicMs();
    }
    return false;
}

}  // namespace

LocalResult ReceiveAnswer(LocalSocketClient& client, std::vector<char>& bytes, int seconds,
                          const AnswerEnd& end, bool& whole) {
    const int64_t deadlineMs =
        seconds > 0 ? MonotonicMs() + int64_t{seconds} * 1000 : LocalSocketClient::kNoDeadline;
    const size_t before = bytes.size();
    const LocalResult result = client.sreceive(bytes, {seconds, 0});
    whole = true;
    if (result == LocalResult::kDone &&
        (end.quietMs > 0 || bytes.size() - before >= kLongAnswerBytes)) {
        whole = ReadOn(client, bytes, before + end.maxBytes, deadlineMs, end);
    }
    return result;
}

}  // namespace kelp
