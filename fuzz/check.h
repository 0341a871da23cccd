// The assertion of the fuzzers.
#pragma once

#include <cstdio>
#include <cstdlib>

// Aborts, so that the engine stores the input.
#define KELP_FUZZ_CHECK(condition)                                                         \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                       \
        }                                                                                  \
    } while (false)
