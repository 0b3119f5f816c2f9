// The two growing line readers (the INI store's and the file utilities') follow the same buffer
// rules, so both suites run this one table of cases against theirs.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace testsupport {

// A file's bytes, the reader's first buffer (none for 0), and the trace of reading it to the
// failing call: "length/capacity " per call, then "kept" or "freed" for the buffer left. The
// first buffer is 120 bytes, a caller's of 60 or less is replaced by one, a full one doubles.
struct LineReaderCase {
    const char* name;
    std::string bytes;
    unsigned long initial;
    const char* trace;
};
inline const LineReaderCase kLineReaderCases[] = {
    {"EmptyFileFreesOwnBuffer", "", 0, "-1/0 freed"},
    {"GrowsTwiceLastLineUnended", "a\n\n" + std::string(300, 'x') + "\nend", 0,
     "2/120 1/120 301/480 3/480 -1/480 kept"},
    {"LineFillsFirstBuffer", std::string(118, 'a') + "\n", 0, "119/120 -1/120 kept"},
    {"UnendedLineFillsBuffer", std::string(119, 'a'), 0, "119/240 -1/240 kept"},
    {"ZeroByteInLine", std::string("a\0b\n", 4), 0, "4/120 -1/120 kept"},
    {"SmallCallerBufferReplaced", "hi\n", 60, "3/120 -1/120 kept"},
    {"CallerBufferDoubles", "hi\n" + std::string(70, 'b') + "\n", 61, "3/61 71/122 -1/122 kept"},
};

// "name: trace\n" for every case `reader` fails (" <text differs>" when the lines read do not
// join up to the bytes); empty when it passes them all. A null buffer pointer is -1 with EINVAL.
template <typename Size>
std::string lineReaderFailures(int (*reader)(FILE*, char**, Size*)) {
    Size size = 0;
    errno = 0;
    const bool refused = reader(stdin, nullptr, &size) == -1 && errno == EINVAL;
    std::string failures = refused ? "" : "NullBufferNotRefused\n";
    for (const LineReaderCase& c : kLineReaderCases) {
        const TempDir dir;
        writeFile(dir.file("lines"), c.bytes);
        FILE* file = std::fopen(dir.file("lines").c_str(), "r");
        if (file == nullptr) return "cannot open a scratch file";
        char* buffer = c.initial > 0 ? static_cast<char*>(std::malloc(c.initial)) : nullptr;
        Size capacity = c.initial;
        std::string trace, joined;
        // One call more than there are bytes ends a reader that never fails.
        for (int length = 0, calls = 0; length >= 0 && calls <= int(c.bytes.size()); ++calls) {
            length = reader(file, &buffer, &capacity);
            trace += std::to_string(length) + "/" + std::to_string(capacity) + " ";
            if (length > 0) joined.append(buffer, static_cast<size_t>(length));
        }
        std::fclose(file);
        trace += buffer == nullptr && capacity == 0 ? "freed" : "kept";
        std::free(buffer);
        if (joined != c.bytes) trace += " <text differs>";
        if (trace != c.trace) failures += std::string(c.name) + ": " + trace + "\n";
    }
    return failures;
}

}  // namespace testsupport
