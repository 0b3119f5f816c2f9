#include "tests/support/raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <random>
#include <thread>

namespace testsupport {

namespace {

using Clock = std::chrono::steady_clock;
constexpr milliseconds kPollStep{10};

int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

sockaddr_in loopbackAddress(int port, const char* address = "127.0.0.1") {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &addr.sin_addr);
    return addr;
}

// A fresh socket set up as `endpoint` asks, before it connects.
int endpointSocket(const Endpoint& endpoint) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (endpoint.receiveBuffer > 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &endpoint.receiveBuffer,
                   sizeof endpoint.receiveBuffer);
    if (endpoint.localAddress != nullptr) {
        sockaddr_in local = loopbackAddress(0, endpoint.localAddress);
        bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local);
    }
    return fd;
}

}  // namespace

// The port is drawn at random below the system's ephemeral range: a port the system hands out
// for port 0 and that is released again tends to be handed out again at once, so test programs
// running side by side would otherwise pick the same one.
int freeLoopbackPort() {
    static std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> below(20000, 32000);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int port = below(random);
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in addr = loopbackAddress(port);
        const bool free = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        ::close(fd);
        if (free) return port;
    }
    return -1;
}

bool RawClient::connect(int port, milliseconds bound, const Endpoint& endpoint) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        close();
        mFd = endpointSocket(endpoint);
        sockaddr_in addr = loopbackAddress(port, endpoint.address);
        if (::connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return true;
        if (Clock::now() >= deadline) {
            close();
            return false;
        }
        std::this_thread::sleep_for(kPollStep);
    }
}

bool RawClient::sendText(const std::string& text) {
    size_t sent = 0;
    while (sent < text.size()) {
        ssize_t n = ::send(mFd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

namespace {

// Waits (until `deadline`) for data and receives one chunk into `into`. Returns recv's result
// (0: the peer closed; below 0: the connection failed), or nothing when the wait ran out.
std::optional<ssize_t> receiveChunk(int fd, Clock::time_point deadline, std::string& into) {
    for (;;) {
        pollfd ready = {fd, POLLIN, 0};
        int polled = poll(&ready, 1, remainingMs(deadline));
        if (polled < 0 && errno == EINTR) continue;
        if (polled <= 0) return std::nullopt;
        char chunk[512];
        ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n > 0) into.append(chunk, static_cast<size_t>(n));
        return n;
    }
}

}  // namespace

std::optional<ssize_t> RawClient::receive(Deadline deadline, std::string& into) {
    return receiveChunk(mFd, deadline, into);
}

bool RawClient::readLine(std::string& line, milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        size_t end = mBuffer.find('\n');
        if (end != std::string::npos) {
            line = mBuffer.substr(0, end);
            mBuffer.erase(0, end + 1);
            return true;
        }
        std::optional<ssize_t> received = receive(deadline, mBuffer);
        if (!received || *received <= 0) return false;
    }
}

bool RawClient::waitForClose(milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    std::string ignored;
    for (;;) {
        std::optional<ssize_t> received = receive(deadline, ignored);
        if (!received) return false;
        if (*received <= 0) return true;  // closed, or reset
        ignored.clear();
    }
}

void RawClient::abort() {
    if (mFd < 0) return;
    linger reset = {1, 0};
    setsockopt(mFd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close();
}

void RawClient::close() {
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    mBuffer.clear();
}

}  // namespace testsupport

namespace testsupport {

int peerDescriptor(int fd) {
    sockaddr_in local{}, peer{};
    socklen_t size = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size) != 0) return -1;
    size = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return -1;
    for (int candidate = 0; candidate < 1024; ++candidate) {
        sockaddr_in candidateLocal{}, candidatePeer{};
        socklen_t localSize = sizeof candidateLocal, peerSize = sizeof candidatePeer;
        if (candidate == fd ||
            getsockname(candidate, reinterpret_cast<sockaddr*>(&candidateLocal), &localSize) != 0 ||
            getpeername(candidate, reinterpret_cast<sockaddr*>(&candidatePeer), &peerSize) != 0)
            continue;
        if (candidateLocal.sin_port == peer.sin_port && candidatePeer.sin_port == local.sin_port &&
            candidateLocal.sin_addr.s_addr == peer.sin_addr.s_addr)
            return candidate;
    }
    return -1;
}

}  // namespace testsupport
