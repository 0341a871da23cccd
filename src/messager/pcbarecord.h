// The binary answer record of the PCBA test daemon on the wire. Integers are 32-bit, signed, in the
// host's byte order:
//
//     0                  result
//     4                  L1, length of the echoed request
//     8                  request, L1 bytes when L1 >= 1
//     8 + max(L1, 0)     L2, length of the response text
//     12 + max(L1, 0)    response, L2 bytes when L2 >= 1
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kelp {

// The longest text that can be received; a greater length means a damaged record.
inline constexpr int32_t kMaxPcbaTextBytes = 1 << 20;

enum class PCBARecordState { kIncomplete, kComplete, kDamaged };

// Looks at the front of `bytes`. For a complete record `length` is set to its length on the wire.
PCBARecordState FindPcbaRecord(std::string_view bytes, size_t& length);

// The 32-bit integer at `data`, which need not be aligned.
int32_t ReadPcbaInt(const char* data);

// True when a text with its length in front, read at `position`, lies inside `bytes`. A negative
// length before it may have moved `position` backwards.
bool PcbaTextFits(std::string_view bytes, int64_t position);

}  // namespace kelp
