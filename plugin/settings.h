// The plug-in's settings: section Settings of "remotectrl.ini" in the host's settings folder
// (the names are in protocol/settings_file.h), read once when the host initialises the plug-in,
// never written.
//
//   Port         TCP port; a value that does not begin with a number leaves 59876. Only the low
//                16 bits reach the socket.
//   Address      IPv4 address to listen on, dotted decimal. Absent or empty: every interface.
//   AllowFrom    client addresses that may connect: IPv4 addresses and CIDR blocks (a.b.c.d/n),
//                separated by commas, blanks around them ignored. Absent or empty: everyone.
//   IdleTimeout  seconds (fractions allowed) without a line after which a session ends, unless an
//                acquisition it started is running. Absent, empty or 0: never.
//   TlsCertificate, TlsKey, TlsClientCA
//                PEM files: the server's certificate chain, its private key (readable by its
//                owner only), the authority that signs the client certificates. With them the
//                port speaks TLS only, every client presenting a certificate (net/tls_context.h).
//                A relative path starts in the settings folder. All absent: plain TCP.
//   TlsAllowedClients  certificate names allowed in, separated by commas. Absent or empty: every
//                client whose certificate the authority signed.
//   TlsMinVersion  1.3 (the default) or 1.2.
//
// The file fails closed: a setting the plug-in would drop without a word could leave it on every
// interface for every client, so whatever it cannot honour sets `error` and the plug-in serves
// nothing. Errors, each one line naming the file:
// - The file exists but cannot be read (no regular file, permission, I/O): "PATH: reason".
//   A missing file gives the defaults and no error.
// - A section spelt Settings in another letter case: "Unknown section [settings] in PATH".
// - In a section Settings of any case, a key other than exactly those above: "Unknown setting
//   allowfrom in PATH", the key as the file spells it (blanks before "=" belong to the key, so
//   "AllowFrom = x" is such a key).
// - An Address, AllowFrom or IdleTimeout value that does not parse, checked in that order:
//   "Invalid setting AllowFrom: VALUE in PATH"; then the TLS keys: one of them without
//   TlsCertificate, or TlsCertificate without TlsKey or TlsClientCA: "Missing setting TlsKey in
//   PATH"; a TlsAllowedClients with an empty item or a TlsMinVersion other than 1.2 and 1.3:
//   "Invalid setting TlsMinVersion: VALUE in PATH"; a file TLS cannot use (unreadable, a key that
//   others may read, a key that is not the certificate's, an expired certificate): "FILE: reason".
// Port keeps its lenient reading, since a bad port cannot widen access. A UTF-8 byte-order mark
// at the start is skipped, and other sections are ignored (settings/strictini.h).
//
// Settled choices:
// - A block whose address has bits past its prefix (10.1.2.3/8) means the block of the prefix.
// - Empty items in AllowFrom and TlsAllowedClients ("a,,b", a trailing comma) do not parse.
// - Of two lines with the same key the later one counts, as in the INI store.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "protocol/settings_file.h"

namespace net {
class TlsContext;
}

namespace PluginRemoteCtrl {

// An IPv4 block, both fields in host byte order.
struct AddressBlock {
    std::uint32_t network;
    std::uint32_t mask;
};

struct PluginSettings {
    int port = protocol::kDefaultPort;
    std::string address;                         // "" for every interface
    std::vector<AddressBlock> allowFrom;         // empty for everyone
    double idleTimeout = 0.0;                    // 0 for never
    std::shared_ptr<const net::TlsContext> tls;  // null for plain TCP
    std::string error;                           // "" when the file can be honoured; see above
};

// Reads `dir`/remotectrl.ini.
PluginSettings readPluginSettings(const std::string& dir);

// Strict dotted decimal: four numbers 0..255, nothing else. Host byte order.
bool parseIpv4(const std::string& text, std::uint32_t& address);

bool isAllowed(const std::vector<AddressBlock>& allowFrom, const std::string& dottedAddress);

}  // namespace PluginRemoteCtrl
