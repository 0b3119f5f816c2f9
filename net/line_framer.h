// The line framing of a received byte stream, one rule for the plain and the TLS connections:
// getLine's buffer, its line bound, kept partial lines and the dropping of cut-off lines, as
// settled in sockets.h. The connection supplies the bytes, one chunk per call.
#pragma once

#include <cstddef>
#include <string>

#include "net/results.h"

namespace net {

class LineFramer {
public:
    // getLine reads at most this many bytes per chunk into a zeroed area two bytes larger, so a
    // chunk always ends in a zero byte.
    static constexpr int kChunkSize = 510;

    // getLine over `readChunk(char* area, int size, double timeout)`, which waits at most
    // `timeout` for bytes and returns how many it stored (0: the peer closed), kTimedOut when none
    // came yet (also when the wait ended without delivering data), or a failure code it has
    // already recorded. Results and `line` as CommunicatingSocket::getLine gives them.
    template <typename ReadChunk>
    int getLine(std::string& line, double timeout, ReadChunk readChunk);

    void setMaxLineLength(size_t maxBytes) { mMaxLineLength = maxBytes; }
    void setKeepPartialLines(bool keep) { mKeepPartialLines = keep; }
    bool hasBufferedLine() const {
        return !mDiscarding && mBuffer.find('\n', mSearchFrom) != std::string::npos;
    }

private:
    // takeLine's result when the buffer holds no line yet.
    static constexpr int kNoLineYet = 1;

    int takeLine(std::string& line);
    // Adds a chunk read as C text: a zero byte cuts the line part before the first line feed, and
    // the tail after it, at that byte.
    void append(const char* area, size_t received);
    // getLine's ways out without a new line.
    int lastLine(std::string& line);
    int partialLine(std::string& line);
    int cutOffLine(std::string& line, int code);
    void clear();

    std::string mBuffer;
    std::string::size_type mSearchFrom = 0;  // mBuffer holds no line feed before this
    size_t mMaxLineLength = 0;
    bool mKeepPartialLines = false;
    bool mDiscarding = false;  // dropping the rest of a line reported too long or cut off
};

template <typename ReadChunk>
int LineFramer::getLine(std::string& line, double timeout, ReadChunk readChunk) {
    int taken = takeLine(line);
    // A buffered line never waits, so the clock is read only when the connection may have to be.
    if (taken != kNoLineYet) return taken;
    const double start = monotonicSeconds();
    for (;;) {
        char area[kChunkSize + 2] = {};
        const int received = readChunk(area, kChunkSize, timeout);
        if (received == 0) return lastLine(line);
        if (received < 0 && received != kTimedOut) return cutOffLine(line, received);
        if (received > 0) {
            append(area, static_cast<size_t>(received));
            taken = takeLine(line);
            if (taken != kNoLineYet) return taken;
        }
        if (monotonicSeconds() - start > timeout) return partialLine(line);
    }
}

}  // namespace net
