#include "platform/errortext.h"

#include <algorithm>
#include <cstring>

#include "main/errorcode.h"

namespace kelp {

namespace {

const char* Find(int64_t code) {
    for (const ErrorText& row : kErrorTexts) {
        if (row.code == code) {
            return row.text;
        }
    }
    return nullptr;
}

}  // namespace

void GetStringByErrCode(int32_t code, int32_t base, char* buffer, size_t size) {
    if (size == 0) {
        return;
    }
    const char* text = Find(code);
    if (text == nullptr) {
        text = Find(int64_t{base} + code);
    }
    if (text == nullptr) {
        text = Find(kErrorUnknown);
    }
    const size_t length = std::min(strlen(text), size - 1);
    memcpy(buffer, text, length);
    buffer[length] = '\0';
}

}  // namespace kelp
