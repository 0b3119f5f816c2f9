// Either side of a TLS connection, as a LineStream: a connection accepted by a TCPServerSocket, or
// one a client has connected, whose handshake is still to come. Lines, time-outs and results
// behave as on a plain connection; the bytes on the wire are TLS records (tls_context.h says what
// each side must present).
//
// - A client checks that the server's certificate is made out to the name it connected to: an IP
//   address subject alternative name for an address (text inet_pton reads, e.g. 127.0.0.1), a DNS
//   name (wildcards allowed) for anything else, which is also sent as the server name indication.
// - In TLS 1.3 a client finishes its handshake before the server has checked the client's
//   certificate; a refusal arrives as an alert at the client's first read, which fails with
//   lastError() "the server refused the client certificate (REASON)". So does a certificate
//   alert in the handshake itself (TLS 1.2).
// - The handshake runs in handshake(), in steps of a time-out each, so the caller can look at a
//   stop request between steps and give up when its own bound has passed.
// - Every call into OpenSSL for the connection happens under one lock, held for that call only,
//   never while waiting: the session reads lines while another thread sends a reply. Waits are
//   the socket layer's ppoll() on the descriptor, which OpenSSL only reads and writes without
//   blocking and without SIGPIPE.
// - A peer that ends the stream without TLS's close_notify may have been cut off by someone on
//   the path: getLine reports that as a failure (-11), so an unterminated last line is dropped as
//   after a reset. Only a close_notify ends the stream in order, with the unterminated rest
//   delivered once.
// - A sendWithin that runs out of time has handed OpenSSL a record it may still be sending; the
//   caller goes on from the count with the same bytes (any buffer address), as the contract asks.
// - The destructor sends close_notify when the connection is still sound, without waiting.
// - hasBufferedLine sees the lines taken out of TLS records so far; a line still inside OpenSSL's
//   buffers makes it say false.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "net/line_framer.h"
#include "net/stream.h"

struct ssl_st;

namespace net {

class TlsContext;

class TlsStream : public SocketStream {
public:
    // The server's side; `context` (TlsContext::forServer) outlives the stream.
    TlsStream(const TlsContext& context, std::unique_ptr<TCPSocket> socket);
    // The client's side, for a server that must be `serverName`; `context`
    // (TlsContext::forClient) outlives the stream.
    TlsStream(const TlsContext& context, std::unique_ptr<TCPSocket> socket,
              const std::string& serverName);
    ~TlsStream() override;
    TlsStream(const TlsStream&) = delete;
    TlsStream& operator=(const TlsStream&) = delete;

    // Goes on with the handshake for at most `timeout` seconds: 0 when it is complete, kTimedOut
    // when it needs more time (call again), kIoFailed when it failed, kTransferWaitFailed when the
    // wait failed; lastError() then says why (e.g. "certificate verify failed: certificate has
    // expired").
    int handshake(double timeout);
    // The last failure of the handshake or a read, in words ("" before any).
    const std::string& lastError() const override { return mLastError; }
    const std::string& lastSendError() const override { return mLastSendError; }

    int getLine(std::string& line, double timeout) override;
    void setMaxLineLength(size_t maxBytes) override { mLines.setMaxLineLength(maxBytes); }
    void setKeepPartialLines(bool keep) override { mLines.setKeepPartialLines(keep); }
    bool hasBufferedLine() const override { return mLines.hasBufferedLine(); }
    int readSome(char* area, int size, double timeout) override;
    int sendWithin(const void* buffer, int bufferLen, double timeout) override;

private:
    // What one OpenSSL call gave: its result, SSL_get_error's verdict, and why it failed.
    struct Outcome {
        int result;
        int verdict;
        std::string reason;
    };

    template <typename Call>
    Outcome locked(Call call);
    // Waits as a call that could not finish asks: 0 once the connection is ready for it,
    // kTimedOut, or a failure recorded in `errors`.
    int await(const Outcome& outcome, double timeout, std::string& errors);
    std::string failureReason(int verdict) const;

    std::mutex mMutex;       // guards every use of mSsl, and mBroken
    ssl_st* mSsl = nullptr;  // null when OpenSSL could not make one
    bool mBroken = false;    // a fatal error: no close_notify may follow
    bool mIsClient = false;
    bool mHandshaken = false;  // set by handshake(), before the stream is shared
    std::string mRefusal;      // why the certificate check refused the client
    std::string mLastError;    // the reading (and handshaking) thread's
    std::string mLastSendError;
    LineFramer mLines;
};

}  // namespace net
