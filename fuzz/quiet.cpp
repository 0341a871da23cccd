// For every fuzzer: log records are dropped.

#include "platform/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kelp::SetLogFilter("*:S");
    return 0;
}
