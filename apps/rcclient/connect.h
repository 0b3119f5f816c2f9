// Connecting to the server with messages a user can act on. The socket layer goes ahead with
// 0.0.0.0 for a name that does not resolve, so the name is looked up here first (IPv4, since the
// server listens on IPv4 only), through a lookup that tests can replace.
#pragma once

#include <string>

#include "net/sockets.h"

namespace rcclient {

// The dotted address of `host`; false when the name does not resolve.
using HostLookup = bool (*)(const std::string& host, std::string& address);
bool lookUpIPv4(const std::string& host, std::string& address);

// True when connected; otherwise false with a one-line `error`: "cannot resolve HOST", or "cannot
// connect to HOST:PORT: REASON".
bool connectToServer(TCPSocket& socket, const std::string& host, unsigned short port,
                     double timeout, std::string& error, HostLookup lookUp = lookUpIPv4);

}  // namespace rcclient
