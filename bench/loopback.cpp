#include "bench/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace bench {

namespace {

sockaddr_in loopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int boundPort(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -1;
    return ntohs(address.sin_port);
}

int bindLoopback(int& port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    const sockaddr_in address = loopbackAddress(0);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (port = boundPort(fd)) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool setTimeouts(int fd, double timeout) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(timeout);
    limit.tv_usec = static_cast<suseconds_t>((timeout - static_cast<double>(limit.tv_sec)) * 1e6);
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
           setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

}  // namespace

int listenLoopback(int backlog, int& port) {
    const int fd = bindLoopback(port);
    if (fd < 0) return -1;
    if (listen(fd, backlog) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int connectLoopback(int port, double timeout) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    const int on = 1;
    const sockaddr_in address = loopbackAddress(port);
    // The send time-out also bounds connect() on Linux.
    if (!setTimeouts(fd, timeout) ||
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool LineReader::readLine(std::string& line) {
    for (;;) {
        const std::string::size_type end = mPending.find('\n');
        if (end != std::string::npos) {
            line.assign(mPending, 0, end);
            mPending.erase(0, end + 1);
            return true;
        }
        char chunk[4096];
        const ssize_t received = recv(mFd, chunk, sizeof chunk, 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) return false;
        mPending.append(chunk, static_cast<size_t>(received));
    }
}

}  // namespace bench
