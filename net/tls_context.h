// What one side of TLS connections needs, loaded once and shared by every connection. A server's:
// its certificate chain and key, the authorities whose client certificates it accepts, and which
// client names it lets in. A client's: the authorities that must have signed the server's
// certificate, and its own certificate and key. Built on OpenSSL 3.
//
// Every connection is mutual TLS: TLS 1.3 (1.2 only when allowed), a client certificate that one
// of the authorities signed, valid now and meant for client use. With an allow list, one of the
// certificate's names must also be on it: a subject common name, or a DNS or IP address subject
// alternative name (IP addresses as text, e.g. 127.0.0.1). Names compare without regard to case,
// whole (no wildcards). There are no revocation lists: a certificate is withdrawn by taking its
// name off the list, or by replacing the authority.
//
// A client offers TLS 1.2 and 1.3 (the server chooses) and accepts a server certificate that one
// of its authorities signed, valid now, meant for server use and made out to the name the client
// connected to (tls_stream.h).
//
// Loading fails, with one line "FILE: reason" naming the file, when a file cannot be read or is no
// regular file, the key file can be read by group or others, a file holds no certificate or no
// unencrypted private key, the key does not belong to the certificate, or the side's own
// certificate has expired. No session tickets or session cache: each connection makes a full
// handshake.
#pragma once

#include <memory>
#include <string>
#include <vector>

struct ssl_ctx_st;

namespace net {

struct TlsServerConfig {
    std::string certificateFile;              // PEM: the server's certificate, then its chain
    std::string keyFile;                      // PEM: the certificate's private key, unencrypted
    std::string clientCaFile;                 // PEM: one or more authorities
    std::vector<std::string> allowedClients;  // empty: every certificate the authorities signed
    bool allowTls12 = false;
};

struct TlsClientConfig {
    std::string serverCaFile;     // PEM: one or more authorities
    std::string certificateFile;  // PEM: the client's certificate, then its chain
    std::string keyFile;          // PEM: the certificate's private key, unencrypted
};

class TlsContext {
public:
    // The context, or null with `error` saying what is wrong with which file.
    static std::unique_ptr<TlsContext> forServer(const TlsServerConfig& config, std::string& error);
    static std::unique_ptr<TlsContext> forClient(const TlsClientConfig& config, std::string& error);
    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    ssl_ctx_st* handle() const { return mContext; }
    // True when `names` (a certificate's names, see above) may come in.
    bool isAllowed(const std::vector<std::string>& names) const;

private:
    TlsContext(ssl_ctx_st* context, std::vector<std::string> allowedClients);

    ssl_ctx_st* mContext;
    std::vector<std::string> mAllowedClients;
};

}  // namespace net
