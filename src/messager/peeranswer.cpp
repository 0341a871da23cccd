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

// Measures the rate of an answer without a time-out.
class RateWindow {
  public:
    RateWindow(int64_t nowMs, size_t bytes) : mSinceMs(nowMs), mSinceBytes(bytes) {}

    // True when less than kMinRateBytes arrived in the last full second.
    bool IsTooSlow(int64_t nowMs, size_t bytes) {
        if (nowMs - mSinceMs < kRateWindowMs) {
            return false;
        }
        const bool tooSlow = bytes - mSinceBytes < kMinRateBytes;
        *this = RateWindow(nowMs, bytes);
        return tooSlow;
    }

  private:
    int64_t mSinceMs;
    size_t mSinceBytes;
};

// True when the whole answer was read: the peer closed the connection or was quiet.
bool ReadOn(LocalSocketClient& client, std::vector<char>& bytes, size_t maxSize, int64_t deadlineMs,
            const AnswerEnd& end) {
    const int quietMs = end.quietMs > 0 ? end.quietMs : kLongQuietMs;
    int64_t nowMs = MonotonicMs();
    if (end.quietMs > 0) {
        deadlineMs = std::min(deadlineMs, nowMs + kMaxReadOnMs);
    }
    RateWindow rate(nowMs, bytes.size());
    while (bytes.size() < maxSize && nowMs < deadlineMs) {
        if (deadlineMs == LocalSocketClient::kNoDeadline && rate.IsTooSlow(nowMs, bytes.size())) {
            return false;
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
