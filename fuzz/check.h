// What a fuzzer says when a promise is broken.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the run, so that the engine keeps the input.
#define KELP_FUZZ_CHECK(condition)                                                         \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                       \
        }                                                                                  \
    } while (false)
