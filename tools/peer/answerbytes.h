// Selects the answer to a request and builds its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "peer/peerscript.h"

namespace kelp::tools {

// Bytes to send: `pattern` repeated until `total` bytes are sent.
struct Output {
    std::string pattern;  // not empty unless total is 0
    uint64_t total = 0;
    size_t pieceBytes = 0;  // 0: in one piece
    int pauseMs = 0;
    bool close = false;
    int64_t dueMs = 0;  // of MonotonicMs
};

// The first answer that matches, or null.
const Answer* FindAnswer(const Role& role, std::string_view request);

// The answer to a request that nothing matches.
Answer AnswerToUnknown(RoleKind kind);

// The output of `answer` to `request` (without its end); due at `nowMs` plus its delay.
Output Compose(const Role& role, const Answer& answer, std::string_view request, int64_t nowMs);

// The unsolicited output of `answer`; due at once.
Output ComposeUnsolicited(const Answer& answer, int64_t nowMs);

// The binary answer of a board-test daemon. Integers are 32 bits wide, signed, in the host's byte
// order: result, length of the request, request, length of the response, response.
std::string PcbaRecord(const Answer& answer, std::string_view request);

}  // namespace kelp::tools
