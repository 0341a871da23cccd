// Reading an answer that does not tell its own length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/localsocketclient.h"

namespace kelp {

// Where an answer ends. What is there when the peer has said something is taken. From 4 KiB on, or
// with `quietMs`, it is read on until the peer closes or has been quiet: for 20 ms, or `quietMs`.
struct AnswerEnd {
    int32_t quietMs = 0;          // above 0: for peers that write one answer in several pieces
    size_t maxBytes = 64u << 20;  // then an answer is cut
};

// Appends the next answer of the peer to `bytes`: kDone. Else nothing came, for the reason
// returned. `seconds` bounds the whole; 0: the wait for the first bytes has no bound.
//
// Sets `whole` to false when what came was handed on because it would not end: the time was over;
// or, with neither a time-out nor `quietMs`, the last second brought less than 4 KiB; or, with
// `quietMs`, reading on had lasted for 30 seconds; or there were `maxBytes`. What follows then
// belongs to the same answer.
LocalResult ReceiveAnswer(LocalSocketClient& client, std::vector<char>& bytes, int seconds,
                          const AnswerEnd& end, bool& whole);

}  // namespace kelp
