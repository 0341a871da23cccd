// Texts of error codes.
#pragma once

#include <cstdint>

namespace kelp {

// Large enough for every text.
using ErrorBuffer = char[32];

// Writes the text of `code` to `buffer`, terminated: the text of `code`, else that of `base + code`
// (so that small codes may be given relative to a base), else that of 6255.
void GetStringByErrCode(int32_t code, int32_t base, ErrorBuffer& buffer);

}  // namespace kelp
