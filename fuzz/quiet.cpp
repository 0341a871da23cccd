// Of every fuzzer: what is logged on the way is not looked at.

#include "platform/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kelp::SetLogFilter("*:S");
    return 0;
}
