// Loopback TCP helpers for the benchmark clients and reference servers, beyond the tests' raw
// client (tests/support/raw_client.h, which also gives the free port): a listening socket, and a
// client made for measuring, with Nagle off and kernel time-outs rather than a poll per read.
// Nothing here talks to any address but 127.0.0.1, and every call that can block is bounded:
// clients get kernel send and receive time-outs (SO_SNDTIMEO, SO_RCVTIMEO), so a silent server
// costs at most that long. Functions return -1 or false on failure, with errno from the failing
// call.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

// A listening socket on 127.0.0.1 and a port the system chose; -1 on failure.
int listenLoopback(int backlog, int& port);

// A connected client socket with Nagle off and both time-outs set to `timeout` seconds.
int connectLoopback(int port, double timeout);

// Sends all bytes; false on an error or when the send time-out passes.
bool sendAll(int fd, const char* data, size_t size);

// Reads "\n"-terminated lines from a socket through a buffer of its own.
class LineReader {
public:
    explicit LineReader(int fd) : mFd(fd) {}

    // The next line without its "\n"; false when the peer closed, on an error or a time-out.
    bool readLine(std::string& line);

private:
    int mFd;
    std::string mPending;
};

}  // namespace bench
