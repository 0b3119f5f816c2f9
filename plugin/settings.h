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
//
// The file fails closed: a setting the plug-in would drop without a word could leave it on every
// interface for every client, so whatever it cannot honour sets `error` and the plug-in serves
// nothing. Errors, each one line naming the file:
// - The file exists but cannot be read (no regular file, permission, I/O): "PATH: reason".
//   A missing file gives the defaults and no error.
// - A section spelt Settings in another letter case: "Unknown section [settings] in PATH".
// - In a section Settings of any case, a key other than exactly Port, Address, AllowFrom and
//   IdleTimeout: "Unknown setting allowfrom in PATH", the key as the file spells it (blanks
//   before "=" belong to the key, so "AllowFrom = x" is such a key).
// - An Address, AllowFrom or IdleTimeout value that does not parse, checked in that order:
//   "Invalid setting AllowFrom: VALUE in PATH".
// Port keeps its lenient reading, since a bad port cannot widen access. A UTF-8 byte-order mark
// at the start is skipped, and other sections are ignored (settings/strictini.h).
//
// Settled choices:
// - A block whose address has bits past its prefix (10.1.2.3/8) means the block of the prefix.
// - Empty items in AllowFrom ("a,,b", a trailing comma) do not parse.
// - Of two lines with the same key the later one counts, as in the INI store.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/settings_file.h"

namespace PluginRemoteCtrl {

// An IPv4 block, both fields in host byte order.
struct AddressBlock {
    std::uint32_t network;
    std::uint32_t mask;
};

struct PluginSettings {
    int port = protocol::kDefaultPort;
    std::string address;                  // "" for every interface
    std::vector<AddressBlock> allowFrom;  // empty for everyone
    double idleTimeout = 0.0;             // 0 for never
    std::string error;                    // "" when the file can be honoured; see above
};

// Reads `dir`/remotectrl.ini.
PluginSettings readPluginSettings(const std::string& dir);

// Strict dotted decimal: four numbers 0..255, nothing else. Host byte order.
bool parseIpv4(const std::string& text, std::uint32_t& address);

bool isAllowed(const std::vector<AddressBlock>& allowFrom, const std::string& dottedAddress);

}  // namespace PluginRemoteCtrl
