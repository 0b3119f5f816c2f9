#include "net/tls_stream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

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

SSL* newConnection(const TlsContext& context, int fd, std::string* refusal) {
    SSL* ssl = SSL_new(context.handle());
    BIO* bio = ssl != nullptr ? socketBio(fd) : nullptr;
    if (bio == nullptr) {
        SSL_free(ssl);
        return nullptr;
    }
    SSL_set_bio(ssl, bio, bio);
    SSL_set_app_data(ssl, refusal);
    return ssl;
}

bool isAddress(const std::string& name) {
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(AF_INET, name.c_str(), address) == 1 ||
           inet_pton(AF_INET6, name.c_str(), address) == 1;
}

// False when OpenSSL cannot take the name (a DNS name it cannot check, such as one with a zero
// byte): the handshake must then not go ahead unchecked.
bool expectServer(SSL* ssl, const std::string& serverName) {
    if (isAddress(serverName))
        return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), serverName.c_str()) == 1;
    return SSL_set1_host(ssl, serverName.c_str()) == 1 &&
           SSL_set_tlsext_host_name(ssl, serverName.c_str()) == 1;
}

// The alerts by which a server says what it thinks of the client's certificate.
bool isCertificateAlert(int alert) {
    switch (alert) {
        case SSL_AD_BAD_CERTIFICATE:
        case SSL_AD_UNSUPPORTED_CERTIFICATE:
        case SSL_AD_CERTIFICATE_REVOKED:
        case SSL_AD_CERTIFICATE_EXPIRED:
        case SSL_AD_CERTIFICATE_UNKNOWN:
        case SSL_AD_UNKNOWN_CA:
        case SSL_AD_ACCESS_DENIED:
        case SSL_AD_CERTIFICATE_REQUIRED:
            return true;
        default:
            return false;
    }
}

bool isWaiting(int verdict) {
    return verdict == SSL_ERROR_WANT_READ || verdict == SSL_ERROR_WANT_WRITE;
}

}  // namespace

TlsStream::TlsStream(const TlsContext& context, std::unique_ptr<TCPSocket> socket)
    : SocketStream(std::move(socket)) {
    mSsl = newConnection(context, mSocket->getDescriptor(), &mRefusal);
    if (mSsl == nullptr) mLastError = "SSL_new: " + tls_detail::reason();
    if (mSsl != nullptr) SSL_set_accept_state(mSsl);
}

TlsStream::TlsStream(const TlsContext& context, std::unique_ptr<TCPSocket> socket,
                     const std::string& serverName)
    : SocketStream(std::move(socket)), mIsClient(true) {
    mSsl = newConnection(context, mSocket->getDescriptor(), &mRefusal);
    if (mSsl == nullptr) {
        mLastError = "SSL_new: " + tls_detail::reason();
    } else if (!expectServer(mSsl, serverName)) {
        mLastError = "cannot check a server certificate for " + serverName;
        SSL_free(mSsl);
        mSsl = nullptr;
    } else {
        SSL_set_connect_state(mSsl);
    }
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
    return Outcome{result, verdict, failureReason(verdict)};
}

// Why a call failed, read at once: errno and the error queue belong to the failing call. A
// client whose handshake has finished has sent all it will: an alert then is the server's
// verdict on its certificate.
std::string TlsStream::failureReason(int verdict) const {
    if (!mRefusal.empty()) return mRefusal;
    const long verified = SSL_get_verify_result(mSsl);
    if (verified != X509_V_OK)
        return std::string("certificate verify failed: ") + X509_verify_cert_error_string(verified);
    if (verdict == SSL_ERROR_ZERO_RETURN) return "closed by the peer";
    if (verdict == SSL_ERROR_SYSCALL && errno != 0) return std::strerror(errno);
    if (verdict == SSL_ERROR_SYSCALL) return "closed without close_notify";
    const int alert = tls_detail::receivedAlert();
    const bool refused = mIsClient && (isCertificateAlert(alert) || (alert >= 0 && mHandshaken));
    if (refused) return "the server refused the client certificate (" + tls_detail::reason() + ")";
    return tls_detail::reason();
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
        const Outcome outcome = locked([](SSL* ssl) { return SSL_do_handshake(ssl); });
        if (outcome.result == 1) {
            mHandshaken = true;
            return 0;
        }
        const int waited = await(outcome, std::max(0.0, deadline - monotonicSeconds()), mLastError);
        if (waited != 0) return waited;
    }
}

// Decrypted bytes may wait inside OpenSSL, so a read comes first and a wait only when it asks for
// one; one more read follows a wait that ended ready, as a plain receive follows its wait.
int TlsStream::readSome(char* area, int size, double timeout) {
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
        return readSome(area, size, wait);
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

}  // namespace net
