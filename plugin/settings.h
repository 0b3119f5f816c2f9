// The plug-in's settings: section Settings of "remotectrl.ini" in the host's settings folder,
// read once when the host initialises the plug-in, never written.
//
//   Port         TCP port; a value that does not begin with a number leaves 59876. Only the low
//                16 bits reach the socket.
//   Address      IPv4 address to listen on, dotted decimal. Absent or empty: every interface.
//   AllowFrom    client addresses that may connect: IPv4 addresses and CIDR blocks (a.b.c.d/n),
//                separated by commas, blanks around them ignored. Absent or empty: everyone.
//   IdleTimeout  seconds (fractions allowed) without a line after which a session ends, unless an
//                acquisition it started is running. Absent, empty or 0: never.
//
// Settled choices:
// - Address, AllowFrom and IdleTimeout fail closed: a value that does not parse leaves the
//   plug-in without a server (invalidKey names it), never with a wider one. Port keeps its
//   lenient reading, since a bad port cannot widen access.
// - A block whose address has bits past its prefix (10.1.2.3/8) means the block of the prefix.
// - Empty items in AllowFrom ("a,,b", a trailing comma) do not parse.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace PluginRemoteCtrl {

// Where the settings live, for hosts that prepare the file (znhost --port).
constexpr const char* kSettingsFile = "remotectrl.ini";
constexpr const char* kSettingsSection = "Settings";
constexpr const char* kPortKey = "Port";

// An IPv4 block, both fields in host byte order.
struct AddressBlock {
    std::uint32_t network;
    std::uint32_t mask;
};

struct PluginSettings {
    int port = 59876;
    std::string address;                  // "" for every interface
    std::vector<AddressBlock> allowFrom;  // empty for everyone
    double idleTimeout = 0.0;             // 0 for never
    // The first key whose value does not parse, as the file spells it, and that value.
    std::string invalidKey;
    std::string invalidValue;
};

// Reads `dir`/remotectrl.ini; a missing file gives the defaults.
PluginSettings readPluginSettings(const std::string& dir);

// Strict dotted decimal: four numbers 0..255, nothing else. Host byte order.
bool parseIpv4(const std::string& text, std::uint32_t& address);

bool isAllowed(const std::vector<AddressBlock>& allowFrom, const std::string& dottedAddress);

}  // namespace PluginRemoteCtrl
