// IPv4 socket classes with time-outs in seconds and integer result codes; nothing here throws
// (except memory exhaustion while building a result string).
//
// Result codes of the waiting operations, named in namespace net (results.h) and worded by
// net::resultName:
//   n > 0  all n requested bytes were transferred (send, recv, sendLine), or the n bytes that
//          went out in time (sendWithin)
//   0      success (connect, getLine, recvReady), the peer closed (recv, getLine), or nothing
//          to move (send, recv, sendWithin with a non-positive length; sendWithin when the time
//          ran out before the peer took a byte)
//   -10    kTimedOut
//   -11    kIoFailed: the send or receive call failed (including a vanished peer)
//   -12    kConnectOrWaitFailed: connect failed, or the wait in recvReady / connect failed
//   -13    kTransferWaitFailed: the wait in send, sendWithin, recv or getLine failed
//   -14    kLineTooLong: getLine with a line bound only
// The other operations give 0 or -1 (startServer -2 when both steps failed), or null.
//
// Errors: errno is left as the failing call set it; it is never translated. The same failure is
// worded in lastError() as the call, the address where there is one, and the system's reason,
// e.g. "bind 0.0.0.0:59876: Address already in use". A time-out is not a failure and records
// nothing. Operations whose name begins with "send" record into lastSendError() instead, so that
// a sending thread and a reading thread never write the same text; each text is read by the
// thread that made the failing call, after the failure. Address queries and shutdownBoth, which
// any thread may call, report through their result and errno only. When the socket could not
// be created, lastError() keeps saying why rather than naming the calls that then fail.
//
// Interrupted calls (EINTR), one rule for the whole layer: an interrupted wait or call is not
// retried; it is reported as that operation's failure code (-12 or -13 for a wait, -11 for a
// send or receive, null from accept, -1 elsewhere) with errno EINTR. The layer blocks only in
// ppoll(), which a signal interrupts whatever SA_RESTART says, and makes every call after a wait
// without blocking, so no call's outcome depends on how a signal handler was installed. A thread
// that must not see EINTR blocks asynchronous signals before it uses sockets (the plug-in's
// threads do).
//
// Settled points:
// - Every time-out is measured on net::monotonicSeconds(), so setting the wall clock neither cuts
//   a wait short nor stretches it. getPrecTime() stays the wall clock.
// - A negative (or NaN) time-out is a failed wait, with errno EINVAL. Waits use ppoll(), so any
//   descriptor number works; a wait on a negative descriptor fails with EBADF.
// - Every descriptor the layer creates or accepts is close-on-exec: a program the host starts
//   does not inherit it.
// - getLine's framing (net/line_framer.h) is shared with the TLS connections (net/tls_stream.h).
// - getLine drops text that arrived before a time-out: on -10 `line` holds what the call
//   gathered, and the next call does not see it again. setKeepPartialLines(true) keeps it
//   instead and joins it with what follows, so a line is delivered whole however slowly it
//   arrives; on -10 `line` then holds a copy of the kept text.
// - When getLine fails (-11, -13) `line` is empty, the unterminated text buffered so far is
//   discarded, and the rest of that line is dropped up to its line feed should it still come: a
//   line cut off by a connection error is never delivered. The peer's orderly close delivers the
//   unterminated rest once (0), then 0 with an empty `line`.
// - getLine's line bound (setMaxLineLength) is off by default: lines of any length are read.
//   With a bound, a longer line is reported once as -14 (net::kLineTooLong) and its bytes are
//   dropped up to and including its line feed, so the buffer never holds much more than the
//   bound whatever the peer sends.
// - send keeps its all-or-nothing form (a block finished after its time-out is still -10). A
//   sender that waits in slices uses sendWithin, which reports how much went out and never
//   sends a byte twice.
// - TCPServerSocket sets no socket option unless asked: setReuseAddress() opts in to
//   SO_REUSEADDR, so a server restarted on its port is not refused while the previous
//   connections sit in the closing wait. TCPSocket::setNoDelay() opts in to TCP_NODELAY.
// - Sends never raise SIGPIPE: a send to a vanished peer just returns -11.
// - Names that do not resolve are not rejected by connect, setLocalAddressAndPort or sendTo:
//   they go ahead with the cleared address 0.0.0.0:0 and report what the system call reports.
// - mDataHook receives the transferred length, so a non-positive request to send or recv
//   reports length 0; sendWithin reports the bytes it sent whenever it returns a count above 0,
//   so a block sent over several calls is seen once, byte for byte.
// - Address text is produced with a reentrant conversion; name resolution is not reentrant,
//   so names must not be resolved from several threads at once.
// - The classes cannot be copied; the bases can only be built and destroyed through a derived
//   class, since no destructor is virtual.
// - sendTo and recvFrom with a negative bufferLen return -1 (EINVAL) without touching the socket.
// - A refused connect leaves the pending socket error (e.g. ECONNREFUSED) in errno.
//
// Threads: one thread may send while another reads lines on the same object; two threads must
// not read (getLine, recv) at once. Set the data hook and the options before the object is shared.
#ifndef REMOTECTRL_NET_SOCKETS_H
#define REMOTECTRL_NET_SOCKETS_H

#include <cstddef>
#include <string>

#include "net/line_framer.h"
#include "net/results.h"

struct sockaddr_in;

// Wall-clock seconds (gettimeofday) with microsecond resolution.
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

    // shutdown(SHUT_RDWR) without closing: wakes a thread blocked in accept() (which then
    // returns null) or in getLine/recv (which then see a closed peer). Returns the system's result.
    int shutdownBoth();
    int getDescriptor() const { return mSockDesc; }
    // The last failure of an operation other than a send, in words ("" before any).
    const std::string& lastError() const { return mLastError; }

protected:
    Socket(int type, int protocol);
    explicit Socket(int sockDesc);
    ~Socket();

    // Records the failure of `call` (at `where`, if not empty) in `errors`, keeping errno;
    // returns `code`.
    int fail(std::string& errors, const char* call, int code, const std::string& where = "");
    // 0 when `result` is, else the failure of `call` recorded in lastError() and -1.
    int checked(int result, const char* call);

    int mSockDesc;
    std::string mLastError;
};

class CommunicatingSocket : public Socket {
public:
    // Watches traffic: direction 0 after a completed send or the part sendWithin sent, 1 after a
    // completed recv.
    using DataHook = void (*)(const void* data, int length, int direction);

    void setNonBlocking();
    // 0, -10 or -12; leaves the socket non-blocking whatever the outcome.
    int connect(const std::string& foreignAddress, unsigned short foreignPort, double timeout);
    // bufferLen, 0, -10, -11 or -13.
    int send(const void* buffer, int bufferLen, double timeout);
    // Sends as much of the block as the peer takes within `timeout`: the count sent (0 to
    // bufferLen; fewer means the time ran out), -11 or -13. A block that went out completely is
    // a success whatever it cost in time; the caller continues from the count.
    int sendWithin(const void* buffer, int bufferLen, double timeout);
    // bufferLen, 0 (also when the peer closed early), -10, -11 or -13.
    int recv(void* buffer, int bufferLen, double timeout);
    // One wait of at most `timeout`, then what has arrived, up to bufferLen bytes: the count, 0
    // (the peer closed), -10, -11 or -13. Bypasses getLine's buffer and the data hook: a reader
    // that frames lines itself uses this instead of getLine, never beside it.
    int recvSome(void* buffer, int bufferLen, double timeout);
    // Sends line + "\n"; as send, so success is line.size() + 1.
    int sendLine(std::string line, double timeout);
    // Next line without its "\n" (a "\r" stays): 0, -10, -11, -13, or -14 with a line bound.
    // What `line` holds on each way out is settled at the top of this file.
    int getLine(std::string& line, double timeout);
    // Lines longer than maxBytes are refused with -14 (0: no bound, the default).
    void setMaxLineLength(size_t maxBytes) { mLines.setMaxLineLength(maxBytes); }
    // Keeps text that arrived before a getLine time-out for the next call (off by default).
    void setKeepPartialLines(bool keep) { mLines.setKeepPartialLines(keep); }
    // True when a complete line is buffered, so the next getLine returns without waiting.
    bool hasBufferedLine() const { return mLines.hasBufferedLine(); }
    // 0 when the descriptor is readable, -10 or -12; ignores lines already buffered.
    int recvReady(double timeout);
    std::string getForeignAddress() const;
    unsigned short getForeignPort() const;
    void setDataHook(DataHook hook) { mDataHook = hook; }
    // The last failure of a send operation, in words ("" before any).
    const std::string& lastSendError() const { return mLastSendError; }

protected:
    CommunicatingSocket(int type, int protocol);
    explicit CommunicatingSocket(int sockDesc);
    ~CommunicatingSocket() = default;

    std::string mLastSendError;

private:
    DataHook mDataHook;
    net::LineFramer mLines;
};

class TCPSocket : public CommunicatingSocket {
public:
    TCPSocket();
    // Adopts a connected descriptor.
    explicit TCPSocket(int sockDesc);

    // Sends small writes at once instead of gathering them (TCP_NODELAY); 0 or -1.
    int setNoDelay();
    // While on, sends are gathered into full segments (TCP_CORK); turning it off sends what was
    // gathered at once. The kernel sends gathered data after 200 ms whatever the setting. 0 or -1.
    int setCork(bool on);
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

// Non-blocking and broadcast-enabled from construction; constructor failures go unreported
// but for lastError().
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
