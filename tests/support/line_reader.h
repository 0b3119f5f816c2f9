// The two growing line readers (the INI store's and the file utilities') follow the same buffer
// rules. This reads a whole file with either and describes what every call did, so that a test
// states a case as one line (bytes in, trace out).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace testsupport {

// Reads the file at `path`, which holds `bytes`, with `reader` until it fails, starting from a
// malloc'd buffer of `initial` bytes (no buffer for 0). Returns "length/capacity " per call, the
// last one being the failure, then "kept" or "freed" for the buffer left at the end. Broken rules
// are marked: "<unfit>" a line without its terminating zero inside the buffer, "<small>" a buffer
// of 60 bytes or less, "<inner line feed>", "<endless>" more lines than bytes, "<longer>" or
// "<text differs>" lines that, joined, are not `bytes`.
template <typename Size>
std::string lineReaderTrace(int (*reader)(FILE*, char**, Size*), const std::string& path,
                            const std::string& bytes, Size initial) {
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return "<cannot open>";
    char* buffer = initial > 0 ? static_cast<char*>(std::malloc(initial)) : nullptr;
    Size capacity = initial;
    std::string trace;
    std::string joined;
    for (size_t lines = 0;; ++lines) {
        const int length = reader(file, &buffer, &capacity);
        trace += std::to_string(length) + "/" + std::to_string(capacity) + " ";
        if (length < 0 || lines == bytes.size()) {
            if (length >= 0) trace += "<endless> ";
            break;
        }
        joined.append(buffer, static_cast<size_t>(length));
        if (static_cast<Size>(length) >= capacity || buffer[length] != '\0') trace += "<unfit> ";
        if (capacity <= 60) trace += "<small> ";
        const void* feed = std::memchr(buffer, '\n', static_cast<size_t>(length));
        if (feed != nullptr && feed != buffer + length - 1) trace += "<inner line feed> ";
    }
    std::fclose(file);
    trace += buffer == nullptr && capacity == 0 ? "freed" : "kept";
    std::free(buffer);
    if (joined != bytes) trace += joined.size() > bytes.size() ? " <longer>" : " <text differs>";
    return trace;
}

// The same over a scratch file holding `bytes`.
template <typename Size>
std::string lineReaderTrace(int (*reader)(FILE*, char**, Size*), const std::string& bytes,
                            Size initial) {
    const TempDir dir;
    writeFile(dir.file("lines"), bytes);
    return lineReaderTrace(reader, dir.file("lines"), bytes, initial);
}

}  // namespace testsupport
