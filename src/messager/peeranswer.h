// Reads an answer that does not carry its length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/localsocketclient.h"

namespace kelp {

// When an answer is complete: normally after the first read. From 4 KiB on, or with `quietMs`,
// reading continues until the peer closes or is quiet for 20 ms, or for `quietMs`.
struct AnswerEnd {
    int32_t quietMs = 0;          // above 0: the peer may write one answer in several pieces
    size_t maxBytes = 64u << 20;  // a longer answer is cut
};

// Appends the peer's next answer to `bytes` and returns kDone. Any other result: no bytes came, and
// the result is the reason. `seconds` bounds the whole call; 0: no limit for the first bytes.
//
// Sets `whole` to false when reading stopped before the end of the answer: time-out; or, with
// neither a time-out nor `quietMs`, less than 4 KiB in the last second; or, with `quietMs`, 30
// seconds of further reading; or `maxBytes` reached. Bytes that follow belong to the same answer.
LocalResult ReceiveAnswer(LocalSocketClient& client, std::vector<char>& bytes, int seconds,
                          const AnswerEnd& end, bool& whole);

}  // namespace kelp
