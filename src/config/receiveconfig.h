// How received bytes are cut into commands.
#pragma once

#include <cstdint>

namespace kelp {

enum RecModeE : int32_t {
    kReceiveNone = 0,      // nothing is cut
    kReceiveTail = 1,      // a command ends with a terminator
    kReceiveTimeTick = 2,  // a command ends with a quiet interval
};

inline constexpr int32_t kMaxTailBytes = 32;

// Written before the first console starts, only read afterwards.
struct ReceiveConfig {
    int32_t mode = kReceiveNone;                           // a RecModeE
    unsigned char tail[kMaxTailBytes + 1] = {'\r', '\n'};  // zero after the last byte
    int32_t tailLength = 2;                                // in bytes
    int32_t millisecond = 0;                               // the quiet interval, in milliseconds
};

}  // namespace kelp
