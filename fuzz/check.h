// What the fuzz targets share beyond tests/support: the property check, and the rules of the two
// growing line readers checked on any input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/line_reader.h"

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

namespace fuzzsupport {

// Reads the file at `path`, holding `bytes`, with `reader` twice: into a buffer the reader
// allocates, and into a caller's buffer of a size taken from the input (60 bytes or less is
// enlarged, more is used as it is).
template <typename Size>
void checkLineReader(int (*reader)(FILE*, char**, Size*), const std::string& path,
                     const std::string& bytes) {
    // A zero byte ends the text measured for a last line without a line feed (and for the piece
    // read after the buffer grew), so only zero-free input must come back whole.
    const bool zeroFree = bytes.find('\0') == std::string::npos;
    for (const Size initial : {Size{0}, Size{1 + bytes.size() % 130}}) {
        std::string trace = testsupport::lineReaderTrace(reader, path, bytes, initial);
        const bool freed = trace.find("freed") != std::string::npos;
        FUZZ_CHECK(freed == (initial == 0 && trace.rfind("-1/", 0) == 0),
                   "a buffer is freed exactly when the failing call allocated it");
        if (!zeroFree) trace = trace.substr(0, trace.find(" <text differs>"));
        FUZZ_CHECK(trace.find('<') == std::string::npos, "the line reader keeps its rules");
        FUZZ_CHECK(!zeroFree || (" " + trace).find(" 0/") == std::string::npos,
                   "a line read is never empty");
    }
}

}  // namespace fuzzsupport
