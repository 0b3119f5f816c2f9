// The fuzz targets' property check.
#pragma once

#include <cstdio>
#include <cstdlib>

// A broken property prints what was expected and aborts, which libFuzzer reports as a crash and
// saves the input that caused it.
#define FUZZ_CHECK(condition, what)                                                             \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: property broken: %s (%s)\n", __FILE__, __LINE__, what, \
                         #condition);                                                           \
            std::abort();                                                                       \
        }                                                                                       \
    } while (0)
