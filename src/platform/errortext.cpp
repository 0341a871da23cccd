#include "platform/errortext.h"

#include <cstdio>

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

void GetStringByErrCode(int32_t code, int32_t base, ErrorBuffer& buffer) {
    const char* text = Find(code);
    if (text == nullptr) {
        text = Find(int64_t{base} + code);
    }
    if (text == nullptr) {
        text = Find(kErrorUnknown);
    }
    snprintf(buffer, sizeof(buffer), "%s", text);
}

}  // namespace kelp
