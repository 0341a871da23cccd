// The binary answer record of the PCBA test daemon, as it lies in the byte stream. Integers are
// 32-bit, signed, in the host's byte order:
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

// A longer text than this cannot be received: its length is damage.
inline constexpr int32_t kMaxPcbaTextBytes = 1 << 20;

enum class PCBARecordState { kIncomplete, kComplete, kDamaged };

// Looks at the front of `bytes`. For a complete record `length` is set to its length on the wire.
PCBARecordState FindPcbaRecord(std::string_view bytes, size_t& length);

// The 32-bit integer at `data`, which need not be aligned.
int32_t ReadPcbaInt(const char* data);

// Whether a text with its length in front, read at `position` (which a negative length before it
// may have moved backwards), lies inside `bytes`.
bool PcbaTextFits(std::string_view bytes, int64_t position);

}  // namespace kelp
