#include "apps/rcclient/tls.h"

#include <cstdio>

#include "net/results.h"
#include "net/tls_stream.h"

namespace rcclient {

namespace {

enum class Cause { kAuthority, kHostName, kNotTls, kSilent };

// How the socket layer words the handshake failures a user can act on (OpenSSL's reasons), and
// how startTls words a handshake that ran out of time.
struct KnownReason {
    const char* text;
    Cause cause;
};

constexpr KnownReason kKnownReasons[] = {
    {"unable to get local issuer certificate", Cause::kAuthority},
    {"self-signed certificate", Cause::kAuthority},
    {"unable to verify the first certificate", Cause::kAuthority},
    {"hostname mismatch", Cause::kHostName},
    {"IP address mismatch", Cause::kHostName},
    {"wrong version number", Cause::kNotTls},
    {"packet length too long", Cause::kNotTls},
    {"record layer failure", Cause::kNotTls},
    {"unexpected eof", Cause::kNotTls},
    {"closed without close_notify", Cause::kNotTls},
    {"no answer within", Cause::kSilent},
};

std::string peerOf(const ClientOptions& options) {
    return options.host + ":" + std::to_string(options.port);
}

std::string explained(Cause cause, const ClientOptions& options) {
    switch (cause) {
        case Cause::kAuthority:
            return "the server's certificate is not signed by the authority in " + options.caFile;
        case Cause::kHostName:
            return "the server's certificate is not for " + options.host;
        case Cause::kSilent:
            return "the server serves one client at a time and may be busy, or does not speak TLS";
        case Cause::kNotTls:
            break;
    }
    return peerOf(options) + " does not speak TLS (a plain-TCP port?)";
}

std::string handshakeFailure(const std::string& reason, const ClientOptions& options) {
    std::string text = "TLS handshake with " + peerOf(options) + " failed: ";
    for (const KnownReason& known : kKnownReasons)
        if (reason.find(known.text) != std::string::npos)
            return text + explained(known.cause, options) + " (" + reason + ")";
    return text + reason;
}

}  // namespace

std::unique_ptr<net::TlsContext> loadTls(const ClientOptions& options, std::string& error) {
    return net::TlsContext::forClient({options.caFile, options.certificateFile, options.keyFile},
                                      error);
}

std::unique_ptr<net::LineStream> startTls(const net::TlsContext& context,
                                          std::unique_ptr<TCPSocket> socket,
                                          const ClientOptions& options, std::string& error) {
    auto stream = std::make_unique<net::TlsStream>(context, std::move(socket), options.host);
    const int result = stream->handshake(options.timeout);
    if (result == 0) return stream;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", options.timeout);
    const std::string reason = result == net::kTimedOut
                                   ? "no answer within " + std::string(seconds) + " s"
                                   : stream->lastError();
    error = handshakeFailure(reason, options);
    return nullptr;
}

}  // namespace rcclient
