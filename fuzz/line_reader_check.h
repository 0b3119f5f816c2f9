// Properties shared by the two growing line readers (the INI store's and the file utilities'),
// which follow the same buffer rules: read a whole stream line by line, once into a buffer the
// reader allocates and once into a caller's buffer of a size picked from the input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/check.h"

namespace fuzzsupport {

// Reads every line of the file at `path` with `reader`, starting from `buffer`/`capacity`, and
// returns the bytes of all lines joined. Frees the buffer at the end.
template <typename Size, typename Reader>
std::string readAllLines(Reader reader, const std::string& path, size_t fileSize, bool zeroFree,
                         char* buffer, Size capacity) {
    FILE* stream = std::fopen(path.c_str(), "r");
    FUZZ_CHECK(stream != nullptr, "the scratch file can be opened");
    const bool ownBufferAtStart = buffer == nullptr || capacity == 0;
    std::string joined;
    bool first = true;
    for (size_t calls = 0;; ++calls) {
        FUZZ_CHECK(calls <= fileSize + 1, "every call but the last consumes a byte");
        int length = reader(stream, &buffer, &capacity);
        if (length < 0) {
            // Only a buffer that this very call allocated is released on failure.
            if (first && ownBufferAtStart)
                FUZZ_CHECK(buffer == nullptr && capacity == 0, "an own buffer is freed at EOF");
            else
                FUZZ_CHECK(buffer != nullptr && capacity > 0, "a caller's buffer stays at EOF");
            break;
        }
        // A zero byte at the start of an unterminated last line makes a line of length 0.
        if (zeroFree) FUZZ_CHECK(length > 0, "a line read is never empty");
        FUZZ_CHECK(buffer != nullptr && static_cast<Size>(length) < capacity,
                   "the line fits its buffer with room for the terminator");
        FUZZ_CHECK(buffer[length] == '\0', "the line is zero-terminated");
        FUZZ_CHECK(capacity > 60, "a buffer is never left at 60 bytes or less");
        const char* feed = static_cast<const char*>(std::memchr(buffer, '\n', length));
        FUZZ_CHECK(feed == nullptr || feed == buffer + length - 1,
                   "a line feed can only be the last byte of a line");
        joined.append(buffer, static_cast<size_t>(length));
        first = false;
    }
    std::fclose(stream);
    std::free(buffer);
    return joined;
}

// Checks one reader on `bytes`, already written to `path`.
template <typename Size, typename Reader>
void checkLineReader(Reader reader, const std::string& path, const std::string& bytes) {
    // A zero byte ends the text the reader measures for a last line without a line feed (and for
    // the piece read after the buffer grew), so only zero-free input must come back whole.
    const bool zeroFree = bytes.find('\0') == std::string::npos;

    std::string own = readAllLines<Size>(reader, path, bytes.size(), zeroFree, nullptr, Size{0});
    FUZZ_CHECK(own.size() <= bytes.size(), "no more bytes come back than the file holds");
    if (zeroFree) FUZZ_CHECK(own == bytes, "the lines joined are the file");

    // A caller's buffer: 60 bytes or less is enlarged, more is used as it is.
    Size capacity = 1 + bytes.size() % 130;
    char* buffer = static_cast<char*>(std::malloc(capacity));
    FUZZ_CHECK(buffer != nullptr, "memory for the caller's buffer");
    std::string given = readAllLines<Size>(reader, path, bytes.size(), zeroFree, buffer, capacity);
    FUZZ_CHECK(given.size() <= bytes.size(), "no more bytes come back than the file holds");
    if (zeroFree) FUZZ_CHECK(given == bytes, "the lines joined are the file");
}

}  // namespace fuzzsupport
