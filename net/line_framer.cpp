#include "net/line_framer.h"

#include <cstring>

namespace net {

namespace {

// Splits the first line off `buffer`; false when it holds no complete line. `searchFrom` is how
// much of the buffer is known to hold no line feed, so that a long line arriving in small chunks
// is scanned once, not once per chunk.
bool takeBufferedLine(std::string& buffer, std::string::size_type& searchFrom, std::string& line) {
    const std::string::size_type end = buffer.find('\n', searchFrom);
    if (end == std::string::npos) {
        searchFrom = buffer.size();
        return false;
    }
    line.assign(buffer, 0, end);
    buffer.erase(0, end + 1);
    searchFrom = 0;
    return true;
}

}  // namespace

void LineFramer::append(const char* area, size_t received) {
    const char* end = static_cast<const char*>(std::memchr(area, '\n', received));
    if (end == nullptr) {
        mBuffer.append(area);
        return;
    }
    const size_t lineLength = static_cast<size_t>(end - area);
    mBuffer.append(area, strnlen(area, lineLength));
    mBuffer += '\n';
    mBuffer.append(end + 1);
}

// Serves the buffered text: a complete line, or a line-too-long report. Drops what belongs to a
// line already reported too long or cut off, up to and including its line feed.
int LineFramer::takeLine(std::string& line) {
    if (mDiscarding) {
        const std::string::size_type end = mBuffer.find('\n');
        mDiscarding = end == std::string::npos;
        mBuffer.erase(0, mDiscarding ? std::string::npos : end + 1);
        if (mDiscarding) return kNoLineYet;
    }
    const bool complete = takeBufferedLine(mBuffer, mSearchFrom, line);
    if (mMaxLineLength == 0) return complete ? 0 : kNoLineYet;
    if (complete) {
        if (line.size() <= mMaxLineLength) return 0;
        line.clear();
        return kLineTooLong;
    }
    if (mBuffer.size() <= mMaxLineLength) return kNoLineYet;
    clear();
    mDiscarding = true;
    line.clear();
    return kLineTooLong;
}

void LineFramer::clear() {
    mBuffer.clear();
    mSearchFrom = 0;
}

// The peer closed: the unterminated rest is the last line.
int LineFramer::lastLine(std::string& line) {
    line = std::move(mBuffer);
    clear();
    mDiscarding = false;
    return 0;
}

int LineFramer::partialLine(std::string& line) {
    if (mKeepPartialLines) {
        line = mBuffer;
    } else {
        line = std::move(mBuffer);
        clear();
    }
    return kTimedOut;
}

// Nothing of a line that a failure cut short may be run: neither what came, nor what follows.
int LineFramer::cutOffLine(std::string& line, int code) {
    mDiscarding = mDiscarding || !mBuffer.empty();
    clear();
    line.clear();
    return code;
}

}  // namespace net
