#include "net/tls_context.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "net/tls_detail.h"

namespace net {

namespace {

constexpr size_t kReadPiece = 4096;
constexpr int kLeafDepth = 0;

// OpenSSL's own types freed by their own functions.
struct BioFree {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct X509Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct NamesFree {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
};
using Bio = std::unique_ptr<BIO, BioFree>;
using Certificate = std::unique_ptr<X509, X509Free>;
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;

std::string failure(const std::string& file, const std::string& reason) {
    tls_detail::clearErrors();
    return file + ": " + reason;
}

// The whole file, read from one descriptor so that the checks and the text are of one file. A
// key that group or others may read has already leaked to them: it is refused, not used.
bool readFile(const std::string& path, bool isKey, std::string& text, std::string& error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = failure(path, std::string("cannot open: ") + std::strerror(errno));
        return false;
    }
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        error = failure(path, "not a regular file");
    else if (isKey && (status.st_mode & (S_IRGRP | S_IROTH)) != 0)
        error = failure(path, "readable by group or others (chmod 600 it)");
    char piece[kReadPiece];
    ssize_t got = 0;
    while (error.empty() && (got = ::read(fd, piece, sizeof piece)) > 0)
        text.append(piece, static_cast<size_t>(got));
    if (error.empty() && got < 0)
        error = failure(path, std::string("read: ") + std::strerror(errno));
    ::close(fd);
    return error.empty();
}

Bio memoryBio(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// Every certificate in the text, in order.
std::vector<Certificate> certificates(const std::string& text) {
    std::vector<Certificate> all;
    const Bio bio = memoryBio(text);
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr))
        all.emplace_back(certificate);
    return all;
}

// An encrypted key would make OpenSSL ask for a passphrase on the host's terminal.
int noPassphrase(char*, int, int, void*) {
    return -1;
}

std::string utcText(const ASN1_TIME* time) {
    std::tm parts{};
    char text[32] = "an unreadable date";
    if (ASN1_TIME_to_tm(time, &parts) == 1)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts);
    return text;
}

// The own certificate of either side: an expired one would only be refused by the peer, with a
// less telling message.
std::string loadCertificate(SSL_CTX* context, const std::string& file) {
    std::string text, error;
    if (!readFile(file, false, text, error)) return error;
    std::vector<Certificate> chain = certificates(text);
    if (chain.empty()) return failure(file, "no certificate");
    if (X509_cmp_current_time(X509_get0_notAfter(chain[0].get())) < 0)
        return failure(file, "expired on " + utcText(X509_get0_notAfter(chain[0].get())));
    if (SSL_CTX_use_certificate(context, chain[0].get()) != 1)
        return failure(file, tls_detail::reason());
    for (size_t i = 1; i < chain.size(); ++i)
        if (SSL_CTX_add1_chain_cert(context, chain[i].get()) != 1)
            return failure(file, tls_detail::reason());
    return "";
}

std::string loadKey(SSL_CTX* context, const std::string& file, const std::string& certificateFile) {
    std::string text, error;
    if (!readFile(file, true, text, error)) return error;
    const Bio bio = memoryBio(text);
    const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassphrase, nullptr));
    OPENSSL_cleanse(text.data(), text.size());
    if (!key) return failure(file, "no unencrypted private key");
    if (SSL_CTX_use_PrivateKey(context, key.get()) != 1 || SSL_CTX_check_private_key(context) != 1)
        return failure(file, "does not match the certificate in " + certificateFile);
    return "";
}

// The authorities verify the peer's certificate; a server also names them to clients in its
// request for one.
std::string loadAuthorities(SSL_CTX* context, const std::string& file, bool nameToClients) {
    std::string text, error;
    if (!readFile(file, false, text, error)) return error;
    const std::vector<Certificate> authorities = certificates(text);
    if (authorities.empty()) return failure(file, "no certificate");
    for (const Certificate& authority : authorities)
        if (X509_STORE_add_cert(SSL_CTX_get_cert_store(context), authority.get()) != 1 ||
            (nameToClients && SSL_CTX_add_client_CA(context, authority.get()) != 1))
            return failure(file, tls_detail::reason());
    return "";
}

std::string asn1Text(const ASN1_STRING* text) {
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                       static_cast<size_t>(ASN1_STRING_length(text)));
}

std::string ipText(const ASN1_OCTET_STRING* address) {
    char text[INET6_ADDRSTRLEN] = "";
    const int length = ASN1_STRING_length(address);
    const int family = length == 4 ? AF_INET : length == 16 ? AF_INET6 : AF_UNSPEC;
    if (family != AF_UNSPEC) inet_ntop(family, ASN1_STRING_get0_data(address), text, sizeof text);
    return text;
}

// The subject common names, then the DNS and IP address alternative names.
std::vector<std::string> certificateNames(X509* certificate) {
    std::vector<std::string> names;
    const X509_NAME* subject = X509_get_subject_name(certificate);
    for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, NID_commonName, i)) >= 0;)
        names.push_back(asn1Text(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i))));
    const std::unique_ptr<GENERAL_NAMES, NamesFree> alternatives(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; alternatives && i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(alternatives.get(), i);
        if (name->type == GEN_DNS) names.push_back(asn1Text(name->d.dNSName));
        if (name->type == GEN_IPADD) names.push_back(ipText(name->d.iPAddress));
    }
    return names;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

// OpenSSL has checked the chain, the dates and the purpose; the allow list is checked on the
// client's own certificate. A refusal fails the handshake with an alert to the client, and the
// names go to the connection's refusal text.
int verifyClient(int preverified, X509_STORE_CTX* store) {
    if (preverified != 1 || X509_STORE_CTX_get_error_depth(store) != kLeafDepth) return preverified;
    SSL* ssl =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const auto* self = static_cast<const TlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    const std::vector<std::string> names = certificateNames(X509_STORE_CTX_get_current_cert(store));
    if (self->isAllowed(names)) return 1;
    tls_detail::setRefusal(ssl, "client certificate (" + joined(names) + ") not allowed");
    X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
    return 0;
}

// No renegotiation, no resumption: one full handshake per connection. Partial writes let a send
// that runs out of time report what went out; the moving buffer lets it go on from there.
SSL_CTX* newServerContext(bool allowTls12) {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    if (context == nullptr) return nullptr;
    SSL_CTX_set_min_proto_version(context, allowTls12 ? TLS1_2_VERSION : TLS1_3_VERSION);
    SSL_CTX_set_options(
        context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_num_tickets(context, 0);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, verifyClient);
    return context;
}

// TLS 1.2 too, for a server that allows it: the version is the server's choice. Writes behave as
// the server's do; the server's name is checked per connection (tls_stream.h).
SSL_CTX* newClientContext() {
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    if (context == nullptr) return nullptr;
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    return context;
}

}  // namespace

std::unique_ptr<TlsContext> TlsContext::forServer(const TlsServerConfig& config,
                                                  std::string& error) {
    SSL_CTX* context = newServerContext(config.allowTls12);
    if (context == nullptr) {
        error = "SSL_CTX_new: " + tls_detail::reason();
        return nullptr;
    }
    std::unique_ptr<TlsContext> self(new TlsContext(context, config.allowedClients));
    error = loadCertificate(context, config.certificateFile);
    if (error.empty()) error = loadKey(context, config.keyFile, config.certificateFile);
    if (error.empty()) error = loadAuthorities(context, config.clientCaFile, true);
    if (!error.empty()) self.reset();
    return self;
}

std::unique_ptr<TlsContext> TlsContext::forClient(const TlsClientConfig& config,
                                                  std::string& error) {
    SSL_CTX* context = newClientContext();
    if (context == nullptr) {
        error = "SSL_CTX_new: " + tls_detail::reason();
        return nullptr;
    }
    std::unique_ptr<TlsContext> self(new TlsContext(context, {}));
    error = loadAuthorities(context, config.serverCaFile, false);
    if (error.empty()) error = loadCertificate(context, config.certificateFile);
    if (error.empty()) error = loadKey(context, config.keyFile, config.certificateFile);
    if (!error.empty()) self.reset();
    return self;
}

TlsContext::TlsContext(SSL_CTX* context, std::vector<std::string> allowedClients)
    : mContext(context), mAllowedClients(std::move(allowedClients)) {
    SSL_CTX_set_app_data(mContext, this);
}

TlsContext::~TlsContext() {
    SSL_CTX_free(mContext);
}

bool TlsContext::isAllowed(const std::vector<std::string>& names) const {
    if (mAllowedClients.empty()) return true;
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return std::any_of(mAllowedClients.begin(), mAllowedClients.end(),
                           [&](const std::string& allowed) {
                               // The lengths first: a name may hold a zero byte.
                               return name.size() == allowed.size() &&
                                      strncasecmp(name.data(), allowed.data(), name.size()) == 0;
                           });
    });
}

}  // namespace net
