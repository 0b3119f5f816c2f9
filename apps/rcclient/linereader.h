// Reply lines from the server, framed here rather than by the stream's getLine: that one drops a
// partly received line when its wait fails, and the client's waits are cut short by stop signals
// (and run in short slices for the progress display), so a line split across two reads would be
// lost.
#pragma once

#include <string>

#include "net/stream.h"

namespace rcclient {

class LineReader {
public:
    enum class Result {
        Line,    // `line` holds the next line without its line feed
        None,    // no complete line yet (time-out, interrupted wait, or only part of a line)
        Closed,  // the server ended the connection in order
        Failed,  // the wait or the receive failed; the stream's lastError() tells why
    };

    explicit LineReader(net::LineStream& stream) : mStream(stream) {}

    // Waits at most `seconds` for data, once; a line already received comes back at once.
    Result next(std::string& line, double seconds);

private:
    bool takeLine(std::string& line);

    net::LineStream& mStream;
    std::string mBuffer;
};

}  // namespace rcclient
