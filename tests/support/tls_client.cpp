#include "tests/support/tls_client.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <signal.h>

namespace testsupport {

namespace {

using Clock = std::chrono::steady_clock;

// OpenSSL's socket BIO writes with write(): a server that closed would end the test with SIGPIPE.
void ignoreBrokenPipes() {
    static const bool ignored = signal(SIGPIPE, SIG_IGN) != SIG_ERR;
    (void)ignored;
}

bool waitFor(int fd, int verdict, Clock::time_point deadline) {
    pollfd ready{fd, static_cast<short>(verdict == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT), 0};
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    return left > 0 && poll(&ready, 1, static_cast<int>(left)) > 0;
}

}  // namespace

std::string pkiFile(const std::string& name) {
    return TEST_PKI_DIR "/" + name;
}

TlsClient::TlsClient(const std::string& identity) : mContext(SSL_CTX_new(TLS_client_method())) {
    ignoreBrokenPipes();
    SSL_CTX_load_verify_locations(mContext, pkiFile("ca.pem").c_str(), nullptr);
    SSL_CTX_set_verify(mContext, SSL_VERIFY_PEER, nullptr);
    if (identity.empty()) return;
    SSL_CTX_use_certificate_chain_file(mContext, pkiFile(identity + ".pem").c_str());
    SSL_CTX_use_PrivateKey_file(mContext, pkiFile(identity + ".key").c_str(), SSL_FILETYPE_PEM);
}

TlsClient::~TlsClient() {
    close();
    SSL_CTX_free(mContext);
}

template <typename Call>
int TlsClient::drive(Call call, Deadline deadline) {
    for (;;) {
        const int result = call(mSsl);
        if (result > 0) return result;
        const int verdict = SSL_get_error(mSsl, result);
        if (verdict == SSL_ERROR_ZERO_RETURN) return 0;
        const bool waiting = verdict == SSL_ERROR_WANT_READ || verdict == SSL_ERROR_WANT_WRITE;
        if (!waiting) return kFailed;
        if (!waitFor(descriptor(), verdict, deadline)) return kWaitRanOut;
    }
}

bool TlsClient::connect(int port, milliseconds bound, const Endpoint& endpoint) {
    const Deadline deadline = Clock::now() + bound;
    if (!RawClient::connect(port, bound, endpoint)) return false;
    fcntl(descriptor(), F_SETFL, fcntl(descriptor(), F_GETFL) | O_NONBLOCK);
    // Else the first line waits for the acknowledgement of the client's last handshake flight,
    // which the server delays, having nothing to send.
    const int on = 1;
    setsockopt(descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    mSsl = SSL_new(mContext);
    SSL_set_fd(mSsl, descriptor());
    X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(mSsl), "127.0.0.1");
    return drive([](SSL* ssl) { return SSL_connect(ssl); }, deadline) == 1;
}

bool TlsClient::sendText(const std::string& text) {
    if (mSsl == nullptr) return false;
    const Deadline deadline = Clock::now() + kReplyBound;
    for (size_t sent = 0; sent < text.size();) {
        const int piece = static_cast<int>(text.size() - sent);
        const int result =
            drive([&](SSL* ssl) { return SSL_write(ssl, text.data() + sent, piece); }, deadline);
        if (result <= 0) return false;
        sent += static_cast<size_t>(result);
    }
    return true;
}

std::optional<ssize_t> TlsClient::receive(Deadline deadline, std::string& into) {
    if (mSsl == nullptr) return kFailed;
    char chunk[512];
    const int result =
        drive([&](SSL* ssl) { return SSL_read(ssl, chunk, sizeof chunk); }, deadline);
    if (result == kWaitRanOut) return std::nullopt;
    if (result > 0) into.append(chunk, static_cast<size_t>(result));
    return result;
}

void TlsClient::freeConnection() {
    SSL_free(mSsl);
    mSsl = nullptr;
}

void TlsClient::close() {
    if (mSsl != nullptr) SSL_shutdown(mSsl);
    freeConnection();
    RawClient::close();
}

void TlsClient::abort() {
    freeConnection();
    RawClient::abort();
}

}  // namespace testsupport
