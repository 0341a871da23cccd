// Which answer a request gets, and the bytes of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "peer/peerscript.h"

namespace kelp::tools {

// Bytes to be sent: `pattern` over and over until `total` are out.
struct Output {
    std::string pattern;  // not empty unless total is 0
    uint64_t total = 0;
    size_t pieceBytes = 0;  // 0: no pieces
    int pauseMs = 0;
    bool close = false;
    int64_t dueMs = 0;  // of MonotonicMs
};

// The first answer that matches, or null.
const Answer* FindAnswer(const Role& role, std::string_view request);

// What a request that nothing matches gets.
Answer AnswerToUnknown(RoleKind kind);

// What `answer` says to `request`, which is without its end; due at `nowMs` plus its delay.
Output Compose(const Role& role, const Answer& answer, std::string_view request, int64_t nowMs);

// What `answer` says by itself; due at once.
Output ComposeUnsolicited(const Answer& answer, int64_t nowMs);

// The binary answer of a board-test daemon. Integers are 32 bits wide, signed, in the host's byte
// order: result, length of the request, request, length of the response, response.
std::string PcbaRecord(const Answer& answer, std::string_view request);

}  // namespace kelp::tools
