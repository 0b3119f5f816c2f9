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
// TLS: the server's certificate chain and key, the authority of the client certificates, which
// clients may come in, and the oldest TLS version taken ("1.3" or "1.2"). Files are PEM; a
// relative path starts in the settings folder.
constexpr const char* kTlsCertificateKey = "TlsCertificate";
constexpr const char* kTlsKeyKey = "TlsKey";
constexpr const char* kTlsClientCaKey = "TlsClientCA";
constexpr const char* kTlsAllowedClientsKey = "TlsAllowedClients";
constexpr const char* kTlsMinVersionKey = "TlsMinVersion";

// The command server's port when the file names none.
constexpr int kDefaultPort = 59876;

}  // namespace protocol
