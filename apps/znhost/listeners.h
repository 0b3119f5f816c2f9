// The TCP sockets this process listens on, as the kernel reports them: the socket inodes among
// /proc/self/fd's links, matched with the LISTEN rows of /proc/net/tcp and /proc/net/tcp6.
// znhost prints "ready" only once its plug-ins listen, since a client that connects at once
// would otherwise be refused.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace znhost {

// "ADDRESS:PORT" per listening socket of this process (IPv6 addresses in brackets), in the
// kernel's order; empty when /proc cannot be read.
std::vector<std::string> ownListeningAddresses();

// Polls ownListeningAddresses() until it holds `wanted` sockets, `gaveUp()` is true or `bound`
// has passed, however long that takes; returns the last list seen.
std::vector<std::string> waitForListeners(size_t wanted, const std::function<bool()>& gaveUp,
                                          std::chrono::milliseconds bound);

}  // namespace znhost
