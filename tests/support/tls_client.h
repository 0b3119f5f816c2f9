// TLS for the tests, on OpenSSL directly and independent of the code under test: the throw-away
// certificates of tools/make-test-pki, and a client with the raw client's interface.
#pragma once

#include <string>

#include "tests/support/raw_client.h"

struct ssl_ctx_st;
struct ssl_st;

namespace testsupport {

// A file of the test PKI ("ca.pem", "client.key", ...), which the build makes with
// tools/make-test-pki.
std::string pkiFile(const std::string& name);

// A client that presents the test PKI's certificate `identity` ("client", "other-client",
// "expired-client"; "" for none) and checks that the server's certificate is the test
// authority's, for 127.0.0.1. In TLS 1.3 the server checks the client's certificate after the
// client has finished its handshake, so a refused client finds out at its first read.
class TlsClient : public RawClient {
public:
    explicit TlsClient(const std::string& identity = "client");
    ~TlsClient() override;

    // Connects, then makes the client's side of the handshake, all within `bound`.
    bool connect(int port, milliseconds bound, const Endpoint& endpoint = {}) override;
    bool sendText(const std::string& text) override;
    // Ends TLS with close_notify, then closes.
    void close() override;
    void abort() override;

protected:
    std::optional<ssize_t> receive(Deadline deadline, std::string& into) override;

private:
    // Runs `call` until it succeeds (its result), the peer ends TLS (0), it fails (kFailed) or
    // `deadline` passes while it waits for the socket (kWaitRanOut).
    static constexpr int kFailed = -1;
    static constexpr int kWaitRanOut = -2;
    template <typename Call>
    int drive(Call call, Deadline deadline);
    void freeConnection();

    ssl_ctx_st* mContext;
    ssl_st* mSsl = nullptr;
};

}  // namespace testsupport
