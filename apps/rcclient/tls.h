// rcclient over TLS: the authority, certificate and key of --ca, --cert and --key, loaded before
// anything is sent, and the client's side of the handshake on a connected socket. Each failure is
// one line that says what the user can change: the file and what is wrong with it, or which check
// the server failed and against what ("the server's certificate is not for HOST", "not signed by
// the authority in FILE", "HOST:PORT does not speak TLS").
#pragma once

#include <memory>
#include <string>

#include "apps/rcclient/options.h"
#include "net/sockets.h"
#include "net/stream.h"
#include "net/tls_context.h"

namespace rcclient {

// The context, or null with `error` ("FILE: reason").
std::unique_ptr<net::TlsContext> loadTls(const ClientOptions& options, std::string& error);

// The stream once the handshake has ended within options.timeout, checking the server's
// certificate against options.host; null with `error` otherwise. `context` outlives the stream.
std::unique_ptr<net::LineStream> startTls(const net::TlsContext& context,
                                          std::unique_ptr<TCPSocket> socket,
                                          const ClientOptions& options, std::string& error);

}  // namespace rcclient
