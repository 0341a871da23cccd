// Texts of error codes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelp {

// Writes the text of `code` to `buffer`, always terminated, cut to `size` bytes with its
// terminator: the text of `code`, else that of `base + code` (so that small codes may be given
// relative to a base), else that of 6255. A `size` of 0 writes nothing.
void GetStringByErrCode(int32_t code, int32_t base, char* buffer, size_t size);

// The form to use: the size comes from the array itself.
template <size_t N>
void GetStringByErrCode(int32_t code, int32_t base, char (&buffer)[N]) {
    GetStringByErrCode(code, base, buffer, N);
}

}  // namespace kelp
