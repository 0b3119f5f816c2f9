// Reply lines from the server, framed here rather than by the socket layer's getLine: that one
// drops a partly received line when its time-out passes, and the client waits in short slices
// (for the progress display and Ctrl-C), so a line split across two segments would be lost.
#pragma once

#include <string>

#include "net/sockets.h"

namespace rcclient {

class LineReader {
public:
    enum class Result {
        Line,    // `line` holds the next line without its line feed
        None,    // no complete line yet (time-out, interrupted wait, or only part of a line)
        Closed,  // the server closed the connection
        Failed,  // the wait or the receive failed; errno tells why
    };

    explicit LineReader(CommunicatingSocket& socket) : mSocket(socket) {}

    // Waits at most `seconds` for data, once; a line already received comes back at once.
    Result next(std::string& line, double seconds);

private:
    bool takeLine(std::string& line);

    CommunicatingSocket& mSocket;
    std::string mBuffer;
};

}  // namespace rcclient
