// A connected stream of text lines, in the clear (PlainStream) or under TLS (TlsStream, tls.h):
// what a line-based session needs, so that its code does not know which one it has. Results, what
// `line` holds, the line bound and the kept partial lines are those of CommunicatingSocket
// (sockets.h), and so is the thread rule: one thread reads lines while another sends.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

class TCPSocket;

namespace net {

class LineStream {
public:
    virtual ~LineStream() = default;

    // 0, -10, -11, -13, or -14 with a line bound.
    virtual int getLine(std::string& line, double timeout) = 0;
    virtual void setMaxLineLength(size_t maxBytes) = 0;
    virtual void setKeepPartialLines(bool keep) = 0;
    // True when the next getLine returns a line without waiting.
    virtual bool hasBufferedLine() const = 0;
    // For a reader that frames lines itself, instead of getLine (never beside it): one wait of at
    // most `timeout`, then up to `size` received bytes: the count, 0 when the peer has ended the
    // stream, kTimedOut (also when what came was not yet a whole TLS record), kTransferWaitFailed
    // (errno EINTR when a signal cut the wait short: nothing is lost, call again) or kIoFailed.
    virtual int readSome(char* area, int size, double timeout) = 0;
    // Why the last read (or handshake) failed, and why the last send did, in words.
    virtual const std::string& lastError() const = 0;
    virtual const std::string& lastSendError() const = 0;
    // The count sent within `timeout` (fewer than bufferLen: the time ran out; continue from the
    // count with the same bytes), -11 or -13.
    virtual int sendWithin(const void* buffer, int bufferLen, double timeout) = 0;
    // Any thread: wakes a pending read (it sees a closed peer); sends fail from then on.
    virtual int shutdownBoth() = 0;
    virtual std::string getForeignAddress() const = 0;
    // TCP_NODELAY and TCP_CORK on the connection underneath; 0 or -1.
    virtual int setNoDelay() = 0;
    virtual int setCork(bool on) = 0;
};

// What every stream does on the TCP connection underneath, whatever travels over it.
class SocketStream : public LineStream {
public:
    explicit SocketStream(std::unique_ptr<TCPSocket> socket);
    ~SocketStream() override;

    int shutdownBoth() override;
    std::string getForeignAddress() const override;
    int setNoDelay() override;
    int setCork(bool on) override;

protected:
    std::unique_ptr<TCPSocket> mSocket;
};

// A TCP connection as it is.
class PlainStream : public SocketStream {
public:
    using SocketStream::SocketStream;

    int getLine(std::string& line, double timeout) override;
    void setMaxLineLength(size_t maxBytes) override;
    void setKeepPartialLines(bool keep) override;
    bool hasBufferedLine() const override;
    int readSome(char* area, int size, double timeout) override;
    const std::string& lastError() const override;
    const std::string& lastSendError() const override;
    int sendWithin(const void* buffer, int bufferLen, double timeout) override;
};

}  // namespace net
