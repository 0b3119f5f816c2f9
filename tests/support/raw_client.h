// A plain blocking loopback client on POSIX sockets, independent of the code under test, and a
// free loopback port to serve on. Nothing here talks to any address but 127.0.0.1.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "tests/support/bounds.h"

namespace testsupport {

// A loopback port that was free a moment ago.
int freeLoopbackPort();

// Where a RawClient connects to and from; loopback addresses only (127.0.0.0/8).
struct Endpoint {
    const char* address = "127.0.0.1";
    const char* localAddress = nullptr;  // bound before connecting, e.g. "127.0.0.2"
    int receiveBuffer = 0;               // SO_RCVBUF when above 0, so replies back up early
};

// The descriptor of this process's end of the connection whose other end is `fd` (a server
// running in the test's own process), or -1.
int peerDescriptor(int fd);

// The transport is virtual so that TlsClient (tls_client.h) serves wherever this one does.
class RawClient {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    RawClient() = default;
    virtual ~RawClient() { close(); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // Connects to the endpoint's address and port, retrying refused attempts until `bound`.
    virtual bool connect(int port, milliseconds bound, const Endpoint& endpoint = {});
    virtual bool sendText(const std::string& text);
    bool sendLine(const std::string& line) { return sendText(line + "\n"); }
    // The next line without its line feed; false on time-out or closed connection.
    bool readLine(std::string& line, milliseconds bound);
    // Sends one line and returns the reply line, or "<no reply>" when none came within `bound`.
    std::string request(const std::string& line, milliseconds bound = kReplyBound) {
        std::string reply;
        return sendLine(line) && readLine(reply, bound) ? reply : "<no reply>";
    }
    // True when the peer closed the connection within `bound` (pending lines are skipped).
    bool waitForClose(milliseconds bound);
    // Closes at once with a reset instead of an orderly shutdown.
    virtual void abort();
    virtual void close();
    int descriptor() const { return mFd; }

protected:
    // Waits until `deadline` for bytes and appends what one receive gives to `into`: its result
    // (0: the peer closed; below 0: the connection failed), or nothing when the wait ran out.
    virtual std::optional<ssize_t> receive(Deadline deadline, std::string& into);

private:
    int mFd = -1;
    std::string mBuffer;
};

}  // namespace testsupport
