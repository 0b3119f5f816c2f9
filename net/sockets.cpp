// Socket layer. The system quirks it depends on each live in one helper: ppoll()'s time-out form,
// SIGPIPE on send, calls that must not block and the wording of errors in io_detail.h;
// close-on-exec and the result codes here.
#include "net/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "net/io_detail.h"

using namespace net;
using namespace net::io_detail;

namespace {

constexpr int kMaxSendPiece = 65536;

// The data hook's direction argument.
constexpr int kSentDirection = 0;
constexpr int kReceivedDirection = 1;

// The failure result of the operations that give 0 or -1.
constexpr int kCallFailed = -1;

std::string endpoint(const std::string& address, unsigned short port) {
    return address + ":" + std::to_string(port);
}

bool hasExpired(double start, double timeout) {
    return monotonicSeconds() - start > timeout;
}

// Records the failure of `call` in `errors`, keeping errno, and returns `code`. While the
// descriptor is -1 the first text stays: for a socket that could not be created, it says why.
int recordFailure(std::string& errors, int fd, const char* call, int code,
                  const std::string& where = "") {
    if (fd < 0 && !errors.empty()) return code;
    errors = describeFailure(call, where);
    return code;
}

// One direction of a connection for transferAll: what to wait for, the call that moves the
// bytes, and where its failures are told.
struct Direction {
    int fd;
    short events;
    const char* call;
    std::string& errors;
};

// The loop shared by send and recv. `step` moves bytes at the given offset and returns the
// system call's result. The expiry test comes before the completion test, so a block whose last
// piece moved after the time-out has passed still counts as timed out (sendWithin is the form
// that counts it).
template <typename Step>
int transferAll(const Direction& direction, int bufferLen, double timeout, Step step) {
    const double start = monotonicSeconds();
    int count = 0;
    while (count < bufferLen) {
        const WaitResult wait = waitFor(direction.fd, direction.events, timeout);
        if (wait == WaitResult::kFailed) {
            return recordFailure(direction.errors, direction.fd, "ppoll", kTransferWaitFailed);
        }
        if (wait == WaitResult::kReady) {
            const ssize_t moved = step(count);
            if (moved < 0) {
                return recordFailure(direction.errors, direction.fd, direction.call, kIoFailed);
            }
            if (moved == 0) return 0;
            count += static_cast<int>(moved);
        }
        if (hasExpired(start, timeout)) return kTimedOut;
    }
    return count;
}

// Only a completed transfer reaches the hook: the whole block, or nothing asked for (length 0).
// A peer that closed early also returns 0, but then a positive length was asked for.
void reportTransfer(CommunicatingSocket::DataHook hook, const void* data, int bufferLen, int result,
                    int direction) {
    const int completeLength = std::max(bufferLen, 0);
    if (hook != nullptr && result == completeLength) hook(data, completeLength, direction);
}

const sockaddr* asSockaddr(const sockaddr_in& addr) {
    return reinterpret_cast<const sockaddr*>(&addr);
}

sockaddr* asSockaddr(sockaddr_in& addr) {
    return reinterpret_cast<sockaddr*>(&addr);
}

template <typename Value>
int setOption(int fd, int level, int name, const Value& value) {
    return ::setsockopt(fd, level, name, &value, sizeof value);
}

// Reads SO_ERROR, the outcome of a non-blocking connect; -1 if it cannot be read.
int pendingError(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return -1;
    return error;
}

std::string dottedText(const in_addr& address) {
    char text[INET_ADDRSTRLEN];
    return ::inet_ntop(AF_INET, &address, text, sizeof text) != nullptr ? text : "";
}

using AddressQuery = int (*)(int, sockaddr*, socklen_t*);

// getsockname or getpeername into an IPv4 record; false when the system cannot tell.
bool queryAddress(int fd, AddressQuery query, sockaddr_in& addr) {
    socklen_t length = sizeof addr;
    return query(fd, asSockaddr(addr), &length) == 0 && addr.sin_family == AF_INET;
}

std::string addressText(int fd, AddressQuery query) {
    sockaddr_in addr{};
    return queryAddress(fd, query, addr) ? dottedText(addr.sin_addr) : "";
}

unsigned short addressPort(int fd, AddressQuery query) {
    sockaddr_in addr{};
    return queryAddress(fd, query, addr) ? ntohs(addr.sin_port) : 0;
}

// The group goes through the numeric parser only: a name yields INADDR_NONE, which is not a
// multicast address, so the system refuses it.
int changeMembership(int fd, int option, const std::string& multicastGroup) {
    ip_mreq membership{};
    membership.imr_multiaddr.s_addr = ::inet_addr(multicastGroup.c_str());
    // The interface is left all zero bits, INADDR_ANY: the system picks it.
    return setOption(fd, IPPROTO_IP, option, membership);
}

}  // namespace

const char* net::resultName(int code) {
    switch (code) {
        case kTimedOut:
            return "timed out";
        case kIoFailed:
            return "send or receive failed";
        case kConnectOrWaitFailed:
            return "connection or wait failed";
        case kTransferWaitFailed:
            return "wait failed";
        case kLineTooLong:
            return "line too long";
        default:
            return code >= 0 ? "completed" : "failed";
    }
}

double net::monotonicSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double getPrecTime() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0;
}

namespace socket_detail {

// gethostbyname keeps its result in storage shared by the process; the address is copied out at
// once, but concurrent resolutions still race.
bool fillAddr(const std::string& address, unsigned short port, sockaddr_in& addr) {
    std::memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    const hostent* host = ::gethostbyname(address.c_str());
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
        return false;
    }
    addr.sin_port = htons(port);
    std::memcpy(&addr.sin_addr.s_addr, host->h_addr_list[0], sizeof addr.sin_addr.s_addr);
    return true;
}

}  // namespace socket_detail

// Every descriptor is close-on-exec from its creation, so no program the host starts inherits
// (and keeps bound) a socket of ours.
Socket::Socket(int type, int protocol)
    : mSockDesc(::socket(AF_INET, type | SOCK_CLOEXEC, protocol)) {
    if (mSockDesc < 0) fail(mLastError, "socket", kCallFailed);
}

Socket::Socket(int sockDesc) : mSockDesc(sockDesc) {}

Socket::~Socket() {
    if (mSockDesc >= 0) ::close(mSockDesc);
    mSockDesc = -1;
}

int Socket::fail(std::string& errors, const char* call, int code, const std::string& where) {
    return recordFailure(errors, mSockDesc, call, code, where);
}

int Socket::checked(int result, const char* call) {
    return result == 0 ? 0 : fail(mLastError, call, kCallFailed);
}

std::string Socket::getLocalAddress() const {
    return addressText(mSockDesc, ::getsockname);
}

unsigned short Socket::getLocalPort() const {
    return addressPort(mSockDesc, ::getsockname);
}

int Socket::setLocalPort(unsigned short localPort) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(localPort);
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::bind(mSockDesc, asSockaddr(addr), sizeof addr) == 0) return 0;
    return fail(mLastError, "bind", kCallFailed, endpoint("0.0.0.0", localPort));
}

int Socket::setLocalAddressAndPort(const std::string& localAddress, unsigned short localPort) {
    sockaddr_in addr;
    socket_detail::fillAddr(localAddress, localPort, addr);
    if (::bind(mSockDesc, asSockaddr(addr), sizeof addr) == 0) return 0;
    return fail(mLastError, "bind", kCallFailed, endpoint(localAddress, localPort));
}

int Socket::shutdownBoth() {
    return ::shutdown(mSockDesc, SHUT_RDWR);
}

CommunicatingSocket::CommunicatingSocket(int type, int protocol)
    : Socket(type, protocol), mDataHook(nullptr) {}

CommunicatingSocket::CommunicatingSocket(int sockDesc) : Socket(sockDesc), mDataHook(nullptr) {}

void CommunicatingSocket::setNonBlocking() {
    const int flags = ::fcntl(mSockDesc, F_GETFL, 0);
    if (flags < 0 || ::fcntl(mSockDesc, F_SETFL, flags | O_NONBLOCK) < 0) {
        fail(mLastError, "fcntl", kCallFailed);
    }
}

int CommunicatingSocket::connect(const std::string& foreignAddress, unsigned short foreignPort,
                                 double timeout) {
    sockaddr_in addr;
    socket_detail::fillAddr(foreignAddress, foreignPort, addr);
    setNonBlocking();
    if (::connect(mSockDesc, asSockaddr(addr), sizeof addr) == 0) return 0;
    const std::string where = endpoint(foreignAddress, foreignPort);
    if (errno != EINPROGRESS) return fail(mLastError, "connect", kConnectOrWaitFailed, where);

    const WaitResult wait = waitFor(mSockDesc, POLLOUT, timeout);
    if (wait == WaitResult::kFailed) return fail(mLastError, "ppoll", kConnectOrWaitFailed);
    if (wait == WaitResult::kTimedOut) return kTimedOut;
    const int error = pendingError(mSockDesc);
    if (error == 0) return 0;
    if (error < 0) return fail(mLastError, "getsockopt SO_ERROR", kConnectOrWaitFailed);
    // The refusal is known only through SO_ERROR; hand it on as the error number.
    errno = error;
    return fail(mLastError, "connect", kConnectOrWaitFailed, where);
}

int CommunicatingSocket::send(const void* buffer, int bufferLen, double timeout) {
    const int fd = mSockDesc;
    const char* bytes = static_cast<const char*>(buffer);
    const Direction out{fd, POLLOUT, "send", mLastSendError};
    const int result = transferAll(out, bufferLen, timeout, [=](int done) {
        return sendPiece(fd, bytes + done, std::min(bufferLen - done, kMaxSendPiece));
    });
    reportTransfer(mDataHook, buffer, bufferLen, result, kSentDirection);
    return result;
}

// Each wait gets only the time that is left, so the whole call stays within `timeout`; the count
// is settled before the clock is read again, so a block that went out is never reported as late.
int CommunicatingSocket::sendWithin(const void* buffer, int bufferLen, double timeout) {
    const char* bytes = static_cast<const char*>(buffer);
    const double deadline = monotonicSeconds() + timeout;
    double left = timeout;
    int count = 0;
    while (count < bufferLen) {
        const WaitResult wait = waitFor(mSockDesc, POLLOUT, left);
        if (wait == WaitResult::kFailed) return fail(mLastSendError, "ppoll", kTransferWaitFailed);
        if (wait == WaitResult::kTimedOut) break;
        const ssize_t sent =
            sendPiece(mSockDesc, bytes + count, std::min(bufferLen - count, kMaxSendPiece));
        if (sent < 0) return fail(mLastSendError, "send", kIoFailed);
        if (sent == 0) break;
        count += static_cast<int>(sent);
        left = std::max(0.0, deadline - monotonicSeconds());
    }
    if (mDataHook != nullptr && count > 0) mDataHook(buffer, count, kSentDirection);
    return count;
}

int CommunicatingSocket::recv(void* buffer, int bufferLen, double timeout) {
    const int fd = mSockDesc;
    char* bytes = static_cast<char*>(buffer);
    const Direction in{fd, POLLIN, "recv", mLastError};
    const int result = transferAll(in, bufferLen, timeout, [=](int done) {
        return receivePiece(fd, bytes + done, bufferLen - done);
    });
    reportTransfer(mDataHook, buffer, bufferLen, result, kReceivedDirection);
    return result;
}

int CommunicatingSocket::sendLine(std::string line, double timeout) {
    line += '\n';
    return send(line.data(), static_cast<int>(line.size()), timeout);
}

int CommunicatingSocket::recvSome(void* buffer, int bufferLen, double timeout) {
    const WaitResult ready = waitFor(mSockDesc, POLLIN, timeout);
    if (ready == WaitResult::kFailed) return fail(mLastError, "ppoll", kTransferWaitFailed);
    if (ready == WaitResult::kTimedOut) return kTimedOut;
    const ssize_t received = receivePiece(mSockDesc, static_cast<char*>(buffer), bufferLen);
    return received < 0 ? fail(mLastError, "recv", kIoFailed) : static_cast<int>(received);
}

// A chunk is one wait and one receive: a wait that ran out, or that ended without data, lets
// the framer test the time-out.
int CommunicatingSocket::getLine(std::string& line, double timeout) {
    return mLines.getLine(line, timeout, [this](char* area, int size, double wait) {
        return recvSome(area, size, wait);
    });
}

int CommunicatingSocket::recvReady(double timeout) {
    const WaitResult wait = waitFor(mSockDesc, POLLIN, timeout);
    if (wait == WaitResult::kFailed) return fail(mLastError, "ppoll", kConnectOrWaitFailed);
    return wait == WaitResult::kReady ? 0 : kTimedOut;
}

std::string CommunicatingSocket::getForeignAddress() const {
    return addressText(mSockDesc, ::getpeername);
}

unsigned short CommunicatingSocket::getForeignPort() const {
    return addressPort(mSockDesc, ::getpeername);
}

TCPSocket::TCPSocket() : CommunicatingSocket(SOCK_STREAM, IPPROTO_TCP) {}

TCPSocket::TCPSocket(int sockDesc) : CommunicatingSocket(sockDesc) {}

int TCPSocket::setNoDelay() {
    return checked(setOption(mSockDesc, IPPROTO_TCP, TCP_NODELAY, 1), "setsockopt TCP_NODELAY");
}

int TCPSocket::setCork(bool on) {
    return checked(setOption(mSockDesc, IPPROTO_TCP, TCP_CORK, on ? 1 : 0), "setsockopt TCP_CORK");
}

TCPServerSocket::TCPServerSocket() : Socket(SOCK_STREAM, IPPROTO_TCP) {}

int TCPServerSocket::startServer(unsigned short localPort, int queueLen) {
    const int bound = setLocalPort(localPort);
    const int listening = setListen(queueLen);  // attempted even when the bind failed
    return bound + listening;
}

int TCPServerSocket::startServer(const std::string& localAddress, unsigned short localPort,
                                 int queueLen) {
    const int bound = setLocalAddressAndPort(localAddress, localPort);
    const int listening = setListen(queueLen);
    return bound + listening;
}

int TCPServerSocket::setReuseAddress() {
    return checked(setOption(mSockDesc, SOL_SOCKET, SO_REUSEADDR, 1), "setsockopt SO_REUSEADDR");
}

// The wait is ppoll's like every other, so a signal ends it the same way; once the socket is
// readable a connection is queued (one thread accepts), and accept4 hands it out at once.
TCPSocket* TCPServerSocket::accept() {
    if (pollOnce(mSockDesc, POLLIN, nullptr) == WaitResult::kFailed) {
        fail(mLastError, "ppoll", kCallFailed);
        return nullptr;
    }
    const int connection = ::accept4(mSockDesc, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
        fail(mLastError, "accept", kCallFailed);
        return nullptr;
    }
    TCPSocket* socket = new (std::nothrow) TCPSocket(connection);
    if (socket == nullptr) {
        ::close(connection);
        errno = ENOMEM;
        fail(mLastError, "accept", kCallFailed);
    }
    return socket;
}

int TCPServerSocket::setListen(int queueLen) {
    return checked(::listen(mSockDesc, queueLen), "listen");
}

UDPSocket::UDPSocket() : CommunicatingSocket(SOCK_DGRAM, IPPROTO_UDP) {
    setBroadcast();
    setNonBlocking();
}

UDPSocket::UDPSocket(unsigned short localPort) : CommunicatingSocket(SOCK_DGRAM, IPPROTO_UDP) {
    setLocalPort(localPort);
    setBroadcast();
    setNonBlocking();
}

UDPSocket::UDPSocket(const std::string& localAddress, unsigned short localPort)
    : CommunicatingSocket(SOCK_DGRAM, IPPROTO_UDP) {
    setLocalAddressAndPort(localAddress, localPort);
    setBroadcast();
    setNonBlocking();
}

int UDPSocket::setBroadcast() {
    return checked(setOption(mSockDesc, SOL_SOCKET, SO_BROADCAST, 1), "setsockopt SO_BROADCAST");
}

int UDPSocket::disconnect() {
    // An all-zero record has family AF_UNSPEC, which dissolves the association; some systems
    // report that with EAFNOSUPPORT although it worked.
    const sockaddr_in unspecified{};
    if (::connect(mSockDesc, asSockaddr(unspecified), sizeof unspecified) == 0) return 0;
    return errno == EAFNOSUPPORT ? 0 : fail(mLastError, "connect AF_UNSPEC", kCallFailed);
}

int UDPSocket::sendTo(const void* buffer, int bufferLen, const std::string& foreignAddress,
                      unsigned short foreignPort) {
    if (bufferLen < 0) {
        errno = EINVAL;
        return kCallFailed;
    }
    sockaddr_in addr;
    socket_detail::fillAddr(foreignAddress, foreignPort, addr);
    const ssize_t sent = ::sendto(mSockDesc, buffer, static_cast<size_t>(bufferLen), 0,
                                  asSockaddr(addr), sizeof addr);
    if (sent == bufferLen) return 0;
    if (sent >= 0) return kCallFailed;  // a datagram goes whole or not at all; never seen
    return fail(mLastSendError, "sendto", kCallFailed, endpoint(foreignAddress, foreignPort));
}

int UDPSocket::recvFrom(void* buffer, int bufferLen, std::string& sourceAddress,
                        unsigned short& sourcePort, double timeout) {
    if (bufferLen < 0) {
        errno = EINVAL;
        return kCallFailed;
    }
    const int ready = recvReady(timeout);
    if (ready != 0) return ready;

    sockaddr_in source{};
    socklen_t length = sizeof source;
    const ssize_t received = ::recvfrom(mSockDesc, buffer, static_cast<size_t>(bufferLen),
                                        MSG_DONTWAIT, asSockaddr(source), &length);
    if (received < 0) return fail(mLastError, "recvfrom", kCallFailed);
    sourceAddress = dottedText(source.sin_addr);
    sourcePort = ntohs(source.sin_port);
    return static_cast<int>(received);
}

int UDPSocket::setMulticastTTL(unsigned char multicastTTL) {
    return checked(setOption(mSockDesc, IPPROTO_IP, IP_MULTICAST_TTL, multicastTTL),
                   "setsockopt IP_MULTICAST_TTL");
}

int UDPSocket::joinGroup(const std::string& multicastGroup) {
    return checked(changeMembership(mSockDesc, IP_ADD_MEMBERSHIP, multicastGroup),
                   "setsockopt IP_ADD_MEMBERSHIP");
}

int UDPSocket::leaveGroup(const std::string& multicastGroup) {
    return checked(changeMembership(mSockDesc, IP_DROP_MEMBERSHIP, multicastGroup),
                   "setsockopt IP_DROP_MEMBERSHIP");
}
