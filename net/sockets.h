// IPv4 socket classes with time-outs in seconds and integer result codes; nothing here throws
// (except memory exhaustion while building a result string).
//
// Result codes of the waiting operations:
//   n > 0  all n requested bytes were transferred (send, recv, sendLine)
//   0      success (connect, getLine, recvReady), the peer closed (recv, getLine), or a
//          non-positive length (send, recv)
//   -10    time-out
//   -11    the send or receive call failed (including a vanished peer)
//   -12    connect failed, or the wait in recvReady / connect failed
//   -13    the wait in send, recv or getLine failed
// On failure errno is left as the failing call set it; it is never translated.
//
// Settled points:
// - A negative (or NaN) time-out is a failed wait, with errno EINVAL. Waits use ppoll(), so any
//   descriptor number works; a wait on a negative descriptor fails with EBADF.
// - Every descriptor the layer creates or accepts is close-on-exec: a program the host starts
//   does not inherit it.
// - getLine keeps text that arrived before a time-out and joins it with what follows, so a line
//   is delivered whole however slowly it arrives. On -10 `line` holds a copy of that text.
// - getLine's line bound (setMaxLineLength) is off by default: lines of any length are read.
//   With a bound, a longer line is reported once as -14 (net::kLineTooLong) and its bytes are
//   dropped up to and including its line feed, so the buffer never holds much more than the
//   bound whatever the peer sends.
// - TCPServerSocket sets no socket option unless asked: setReuseAddress() opts in to
//   SO_REUSEADDR, so a server restarted on its port is not refused while the previous
//   connections sit in the closing wait.
// - Sends never raise SIGPIPE: a send to a vanished peer just returns -11.
// - Names that do not resolve are not rejected by connect, setLocalAddressAndPort or sendTo:
//   they go ahead with the cleared address 0.0.0.0:0 and report what the system call reports.
// - mDataHook receives the transferred length, so a non-positive request reports length 0.
// - Address text is produced with a reentrant conversion; name resolution is not reentrant,
//   so names must not be resolved from several threads at once.
// - The classes cannot be copied; the bases can only be built and destroyed through a derived
//   class, since no destructor is virtual.
// - sendTo and recvFrom with a negative bufferLen return -1 (EINVAL) without touching the socket.
// - A refused connect leaves the pending socket error (e.g. ECONNREFUSED) in errno.
//
// Threads: one thread may send while another reads lines on the same object; two threads must
// not read (getLine, recv) at once. Set the data hook before the object is shared.
#ifndef REMOTECTRL_NET_SOCKETS_H
#define REMOTECTRL_NET_SOCKETS_H

#include <cstddef>
#include <string>

struct sockaddr_in;

// Result codes of the waiting operations, as listed above. A failed wait has two codes because
// recvReady and connect report it as -12 while send, recv and getLine report it as -13.
namespace net {
constexpr int kTimedOut = -10;
constexpr int kIoFailed = -11;
constexpr int kConnectFailed = -12;
constexpr int kReadyWaitFailed = -12;
constexpr int kTransferWaitFailed = -13;
// getLine only, when a line bound is set: the line is longer than the bound.
constexpr int kLineTooLong = -14;
}  // namespace net

// Wall-clock seconds with microsecond resolution; only differences are meaningful.
double getPrecTime();

// Internal to the socket layer; declared here only so its address bytes can be tested.
namespace socket_detail {
// Resolves `address` (a name or dotted text) and stores it with `port` in `addr`. Returns false
// when the name does not resolve; `addr` is then AF_INET with address 0.0.0.0 and port 0.
bool fillAddr(const std::string& address, unsigned short port, sockaddr_in& addr);
}  // namespace socket_detail

class Socket {
public:
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Dotted-decimal local address, or "" when the system cannot tell.
    std::string getLocalAddress() const;
    // Local port in host byte order, or 0 when the system cannot tell.
    unsigned short getLocalPort() const;
    // Binds to 0.0.0.0 and the port (0 lets the system choose); 0 or -1.
    int setLocalPort(unsigned short localPort);
    // Binds to the resolved address and the port; 0 or -1.
    int setLocalAddressAndPort(const std::string& localAddress, unsigned short localPort);
    static int cleanUp();

    // shutdown(SHUT_RDWR) without closing: wakes a thread blocked in accept() (which then
    // returns null) or in getLine/recv (which then see a closed peer). Returns the system's result.
    int shutdownBoth();
    int getDescriptor() const { return mSockDesc; }

protected:
    Socket(int type, int protocol);
    explicit Socket(int sockDesc);
    ~Socket();

    int mSockDesc;
};

class CommunicatingSocket : public Socket {
public:
    // Watches traffic: direction 0 after a completed send, 1 after a completed recv.
    using DataHook = void (*)(const void* data, int length, int direction);

    void setNonBlocking();
    // 0, -10 or -12; leaves the socket non-blocking whatever the outcome.
    int connect(const std::string& foreignAddress, unsigned short foreignPort, double timeout);
    // bufferLen, 0, -10, -11 or -13.
    int send(const void* buffer, int bufferLen, double timeout);
    // bufferLen, 0 (also when the peer closed early), -10, -11 or -13.
    int recv(void* buffer, int bufferLen, double timeout);
    // Sends line + "\n"; as send, so success is line.size() + 1.
    int sendLine(std::string line, double timeout);
    // Next line without its "\n" (a "\r" stays): 0, -10, -11, -13, or -14 with a line bound. A
    // closed peer gives 0 with the text gathered so far; on -10 `line` holds a copy of the partial
    // text, which stays buffered for the next call.
    int getLine(std::string& line, double timeout);
    // Lines longer than maxBytes are refused with -14 (0: no bound, the default).
    void setMaxLineLength(size_t maxBytes) { mMaxLineLength = maxBytes; }
    // 0 when the descriptor is readable, -10 or -12; ignores lines already buffered.
    int recvReady(double timeout);
    std::string getForeignAddress() const;
    unsigned short getForeignPort() const;
    void setDataHook(DataHook hook) { mDataHook = hook; }

protected:
    CommunicatingSocket(int type, int protocol);
    explicit CommunicatingSocket(int sockDesc);
    ~CommunicatingSocket() = default;

private:
    // takeLine's result when the buffer holds no line yet.
    static constexpr int kNoLineYet = 1;
    int takeLine(std::string& line);

    DataHook mDataHook;
    std::string mLineBuffer;
    std::string::size_type mSearchFrom = 0;  // mLineBuffer holds no line feed before this
    size_t mMaxLineLength = 0;
    bool mDiscarding = false;  // dropping the rest of a line reported too long
};

class TCPSocket : public CommunicatingSocket {
public:
    TCPSocket();
    // Adopts a connected descriptor.
    explicit TCPSocket(int sockDesc);
};

class TCPServerSocket : public Socket {
public:
    TCPServerSocket();
    // Binds 0.0.0.0:localPort and listens: 0, -1 if one step failed, -2 if both did.
    int startServer(unsigned short localPort, int queueLen);
    // The same on one local address (dotted decimal or a name).
    int startServer(const std::string& localAddress, unsigned short localPort, int queueLen);
    // Opts in to SO_REUSEADDR; call before startServer. 0 or -1.
    int setReuseAddress();
    // Blocks until a client connects; the caller owns the result. Null on any failure.
    TCPSocket* accept();
    int setListen(int queueLen);
};

// Non-blocking and broadcast-enabled from construction; constructor failures go unreported.
class UDPSocket : public CommunicatingSocket {
public:
    UDPSocket();
    explicit UDPSocket(unsigned short localPort);
    UDPSocket(const std::string& localAddress, unsigned short localPort);

    int setBroadcast();
    // Removes the peer set by connect; 0 or -1.
    int disconnect();
    // 0 when the whole datagram was sent, else -1.
    int sendTo(const void* buffer, int bufferLen, const std::string& foreignAddress,
               unsigned short foreignPort);
    // Byte count (a longer datagram is cut and its rest lost), -1, -10 or -12.
    int recvFrom(void* buffer, int bufferLen, std::string& sourceAddress,
                 unsigned short& sourcePort, double timeout);
    int setMulticastTTL(unsigned char multicastTTL);
    // The group must be dotted text; names are refused (-1).
    int joinGroup(const std::string& multicastGroup);
    int leaveGroup(const std::string& multicastGroup);
};

#endif  // REMOTECTRL_NET_SOCKETS_H
