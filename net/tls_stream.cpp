#include "net/tls_stream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "net/io_detail.h"
#include "net/sockets.h"
#include "net/tls_context.h"
#include "net/tls_detail.h"

namespace net {

using namespace io_detail;

namespace {

// The most plaintext one TLS record carries.
constexpr int kMaxRecord = 16384;

int descriptorOf(BIO* bio) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio)));
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

// OpenSSL's own socket BIO writes with write(), which raises SIGPIPE on a reset connection, and
// blocks on a blocking descriptor. This one goes through the layer's send and receive helpers:
// never blocking, never a signal, and "try again" when the socket is not ready.
int bioWrite(BIO* bio, const char* data, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent = sendPiece(descriptorOf(bio), data, length);
    if (sent < 0 && wouldBlock()) BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int bioRead(BIO* bio, char* data, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t received = receivePiece(descriptorOf(bio), data, length);
    if (received < 0 && wouldBlock()) BIO_set_retry_read(bio);
    return static_cast<int>(received);
}

long bioControl(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

// Made once, kept for the life of the module.
BIO_METHOD* socketMethod() {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made =
            BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "remotectrl socket");
        if (made != nullptr) {
            BIO_meth_set_write(made, bioWrite);
            BIO_meth_set_read(made, bioRead);
            BIO_meth_set_ctrl(made, bioControl);
        }
        return made;
    }();
    return method;
}

BIO* socketBio(int fd) {
    BIO_METHOD* method = socketMethod();
    BIO* bio = method != nullptr ? BIO_new(method) : nullptr;
    if (bio == nullptr) return nullptr;
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
    BIO_set_init(bio, 1);
    return bio;
}

SSL* newServerConnection(const TlsContext& context, int fd, std::string* refusal) {
    SSL* ssl = SSL_new(context.handle());
    BIO* bio = ssl != nullptr ? socketBio(fd) : nullptr;
    if (bio == nullptr) {
        SSL_free(ssl);
        return nullptr;
    }
    SSL_set_bio(ssl, bio, bio);
    SSL_set_app_data(ssl, refusal);
    SSL_set_accept_state(ssl);
    return ssl;
}

// Why a call failed, read at once: errno and the error queue belong to the failing call.
std::string failureReason(SSL* ssl, int verdict, const std::string& refusal) {
    if (!refusal.empty()) return refusal;
    const long verified = SSL_get_verify_result(ssl);
    if (verified != X509_V_OK)
        return std::string("certificate verify failed: ") + X509_verify_cert_error_string(verified);
    if (verdict == SSL_ERROR_ZERO_RETURN) return "closed by the peer";
    if (verdict == SSL_ERROR_SYSCALL && errno != 0) return std::strerror(errno);
    if (verdict == SSL_ERROR_SYSCALL) return "closed without close_notify";
    return tls_detail::reason();
}

bool isWaiting(int verdict) {
    return verdict == SSL_ERROR_WANT_READ || verdict == SSL_ERROR_WANT_WRITE;
}

}  // namespace

TlsStream::TlsStream(const TlsContext& context, std::unique_ptr<TCPSocket> socket)
    : mSocket(std::move(socket)) {
    mSsl = newServerConnection(context, mSocket->getDescriptor(), &mRefusal);
    if (mSsl == nullptr) mLastError = "SSL_new: " + tls_detail::reason();
}

TlsStream::~TlsStream() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSsl != nullptr && !mBroken && SSL_is_init_finished(mSsl)) SSL_shutdown(mSsl);
    SSL_free(mSsl);
    tls_detail::clearErrors();
}

template <typename Call>
TlsStream::Outcome TlsStream::locked(Call call) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSsl == nullptr) return Outcome{-1, SSL_ERROR_SSL, mLastError};
    ERR_clear_error();
    errno = 0;
    const int result = call(mSsl);
    const int verdict = result > 0 ? SSL_ERROR_NONE : SSL_get_error(mSsl, result);
    if (verdict == SSL_ERROR_NONE || isWaiting(verdict)) return Outcome{result, verdict, ""};
    mBroken = mBroken || verdict == SSL_ERROR_SSL || verdict == SSL_ERROR_SYSCALL;
    return Outcome{result, verdict, failureReason(mSsl, verdict, mRefusal)};
}

int TlsStream::await(const Outcome& outcome, double timeout, std::string& errors) {
    if (!isWaiting(outcome.verdict)) {
        errors = outcome.reason;
        return kIoFailed;
    }
    const short events = outcome.verdict == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
    const WaitResult wait = waitFor(mSocket->getDescriptor(), events, timeout);
    if (wait == WaitResult::kFailed) {
        errors = describeFailure("ppoll");
        return kTransferWaitFailed;
    }
    return wait == WaitResult::kReady ? 0 : kTimedOut;
}

int TlsStream::handshake(double timeout) {
    const double deadline = monotonicSeconds() + timeout;
    for (;;) {
        const Outcome outcome = locked([](SSL* ssl) { return SSL_accept(ssl); });
        if (outcome.result == 1) return 0;
        const int waited = await(outcome, std::max(0.0, deadline - monotonicSeconds()), mLastError);
        if (waited != 0) return waited;
    }
}

// Decrypted bytes may wait inside OpenSSL, so a read comes first and a wait only when it asks for
// one; one more read follows a wait that ended ready, as a plain receive follows its wait.
int TlsStream::readChunk(char* area, int size, double timeout) {
    const auto read = [=](SSL* ssl) { return SSL_read(ssl, area, size); };
    Outcome outcome = locked(read);
    if (isWaiting(outcome.verdict)) {
        const int waited = await(outcome, timeout, mLastError);
        if (waited != 0) return waited;
        outcome = locked(read);
    }
    if (outcome.result > 0) return outcome.result;
    if (outcome.verdict == SSL_ERROR_ZERO_RETURN) return 0;
    if (isWaiting(outcome.verdict)) return kTimedOut;
    mLastError = outcome.reason;
    return kIoFailed;
}

int TlsStream::getLine(std::string& line, double timeout) {
    return mLines.getLine(line, timeout, [this](char* area, int size, double wait) {
        return readChunk(area, size, wait);
    });
}

int TlsStream::sendWithin(const void* buffer, int bufferLen, double timeout) {
    const char* bytes = static_cast<const char*>(buffer);
    const double deadline = monotonicSeconds() + timeout;
    int count = 0;
    while (count < bufferLen) {
        const int piece = std::min(bufferLen - count, kMaxRecord);
        const Outcome outcome =
            locked([&](SSL* ssl) { return SSL_write(ssl, bytes + count, piece); });
        if (outcome.result > 0) {
            count += outcome.result;
            continue;
        }
        const int waited =
            await(outcome, std::max(0.0, deadline - monotonicSeconds()), mLastSendError);
        if (waited == kTimedOut) break;
        if (waited != 0) return waited;
    }
    return count;
}

int TlsStream::shutdownBoth() {
    return mSocket->shutdownBoth();
}

std::string TlsStream::getForeignAddress() const {
    return mSocket->getForeignAddress();
}

int TlsStream::setNoDelay() {
    return mSocket->setNoDelay();
}

int TlsStream::setCork(bool on) {
    return mSocket->setCork(on);
}

}  // namespace net
