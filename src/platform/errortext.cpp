#include "platform/errortext.h"

#include <cstdio>
#include <initializer_list>

#include "main/errorcode.h"

namespace kelp {

void GetStringByErrCode(int32_t code, int32_t base, ErrorBuffer& buffer) {
    for (const int64_t wanted : {int64_t{code}, int64_t{base} + code, int64_t{kErrorUnknown}}) {
        for (const ErrorText& row : kErrorTexts) {
            if (row.code == wanted) {
                snprintf(buffer, sizeof(buffer), "%s", row.text);
                return;
            }
        }
    }
}

}  // namespace kelp
