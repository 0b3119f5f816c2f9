// The plug-in's settings file as the programs around the plug-in know it: a host that prepares
// the file (znhost --port) and clients that find the server's port in it. The plug-in reads it
// (plugin/settings.h); nothing outside the plug-in needs more than these names.
#pragma once

namespace protocol {

// In the host's settings folder.
constexpr const char* kSettingsFile = "remotectrl.ini";
constexpr const char* kSettingsSection = "Settings";

constexpr const char* kPortKey = "Port";
constexpr const char* kAddressKey = "Address";
constexpr const char* kAllowFromKey = "AllowFrom";
constexpr const char* kIdleTimeoutKey = "IdleTimeout";

// The command server's port when the file names none.
constexpr int kDefaultPort = 59876;

}  // namespace protocol
