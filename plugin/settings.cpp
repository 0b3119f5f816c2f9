#include "plugin/settings.h"

#include <strings.h>

#include <algorithm>
#include <iterator>

#include "net/tls_context.h"
#include "settings/str.h"
#include "settings/strictini.h"

namespace PluginRemoteCtrl {

namespace {

using namespace protocol;

constexpr const char* kKeys[] = {kPortKey,        kAddressKey,           kAllowFromKey,
                                 kIdleTimeoutKey, kTlsCertificateKey,    kTlsKeyKey,
                                 kTlsClientCaKey, kTlsAllowedClientsKey, kTlsMinVersionKey};
constexpr const char* kItemBlanks = " ";
constexpr const char* kTls12 = "1.2";
constexpr const char* kTls13 = "1.3";

// A decimal number 0..max written with digits only.
bool parseSmallNumber(const std::string& text, unsigned max, unsigned& value) {
    if (text.empty() || text.size() > 3) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    return value <= max;
}

bool parseBlock(const std::string& text, AddressBlock& block) {
    const std::string::size_type slash = text.find('/');
    unsigned prefix = 32;
    if (slash != std::string::npos && !parseSmallNumber(text.substr(slash + 1), 32, prefix))
        return false;
    std::uint32_t address = 0;
    if (!parseIpv4(text.substr(0, slash), address)) return false;
    // A shift by 32 is undefined, so the empty prefix gets its mask spelled out.
    block.mask = prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
    block.network = address & block.mask;
    return true;
}

// The items between commas, blanks around them dropped.
std::vector<std::string> listItems(const std::string& text) {
    std::vector<std::string> items;
    for (std::string::size_type start = 0;;) {
        const std::string::size_type comma = text.find(',', start);
        items.push_back(str::trim(text.substr(start, comma - start), kItemBlanks));
        if (comma == std::string::npos) return items;
        start = comma + 1;
    }
}

bool parseAllowList(const std::string& text, std::vector<AddressBlock>& blocks) {
    for (const std::string& item : listItems(text)) {
        AddressBlock block{};
        if (!parseBlock(item, block)) return false;
        blocks.push_back(block);
    }
    return true;
}

bool parseNameList(const std::string& text, std::vector<std::string>& names) {
    names = listItems(text);
    return std::none_of(names.begin(), names.end(),
                        [](const std::string& name) { return name.empty(); });
}

// A section or key the plug-in does not read would leave its setting out without a word, which
// for AllowFrom or Address widens access; so both are errors, while unrelated sections are not.
std::string layoutError(const StrictIni& ini) {
    for (const std::string& section : ini.sections()) {
        if (strcasecmp(section.c_str(), kSettingsSection) != 0) continue;
        if (section != kSettingsSection)
            return "Unknown section [" + section + "] in " + ini.path();
        for (const std::string& key : ini.keys(section))
            if (std::none_of(std::begin(kKeys), std::end(kKeys),
                             [&](const char* known) { return key == known; }))
                return "Unknown setting " + key + " in " + ini.path();
    }
    return "";
}

std::string invalidSetting(const StrictIni& ini, const char* key) {
    return std::string("Invalid setting ") + key + ": " + ini.text(kSettingsSection, key) + " in " +
           ini.path();
}

std::string missingSetting(const StrictIni& ini, const char* key) {
    return std::string("Missing setting ") + key + " in " + ini.path();
}

std::string inFolder(const std::string& dir, const std::string& path) {
    return path.empty() || path[0] == '/' ? path : dir + "/" + path;
}

// The other TLS keys mean nothing without a certificate; a file that sets one of them alone
// most likely expects TLS, so it is refused rather than served in the clear.
std::string readTls(const StrictIni& ini, const std::string& dir, PluginSettings& settings) {
    net::TlsServerConfig config;
    config.certificateFile = inFolder(dir, ini.text(kSettingsSection, kTlsCertificateKey));
    config.keyFile = inFolder(dir, ini.text(kSettingsSection, kTlsKeyKey));
    config.clientCaFile = inFolder(dir, ini.text(kSettingsSection, kTlsClientCaKey));
    const std::string allowed = ini.text(kSettingsSection, kTlsAllowedClientsKey);
    const std::string version = ini.text(kSettingsSection, kTlsMinVersionKey);
    if (config.certificateFile.empty()) {
        const bool tlsMeant = !(config.keyFile + config.clientCaFile + allowed + version).empty();
        return tlsMeant ? missingSetting(ini, kTlsCertificateKey) : "";
    }
    if (config.keyFile.empty()) return missingSetting(ini, kTlsKeyKey);
    if (config.clientCaFile.empty()) return missingSetting(ini, kTlsClientCaKey);
    if (!allowed.empty() && !parseNameList(allowed, config.allowedClients))
        return invalidSetting(ini, kTlsAllowedClientsKey);
    if (!version.empty() && version != kTls13 && version != kTls12)
        return invalidSetting(ini, kTlsMinVersionKey);
    config.allowTls12 = version == kTls12;
    std::string error;
    settings.tls = net::TlsContext::forServer(config, error);
    return error;
}

std::string readValues(StrictIni& ini, const std::string& dir, PluginSettings& settings) {
    settings.port = str::toNumDef<int>(ini.text(kSettingsSection, kPortKey), settings.port);
    std::uint32_t ignored = 0;
    settings.address = ini.text(kSettingsSection, kAddressKey);
    if (!settings.address.empty() && !parseIpv4(settings.address, ignored))
        return invalidSetting(ini, kAddressKey);
    const std::string allowFrom = ini.text(kSettingsSection, kAllowFromKey);
    if (!allowFrom.empty() && !parseAllowList(allowFrom, settings.allowFrom))
        return invalidSetting(ini, kAllowFromKey);
    if (!ini.readReal(kSettingsSection, kIdleTimeoutKey, settings.idleTimeout, 0.0))
        return invalidSetting(ini, kIdleTimeoutKey);
    return readTls(ini, dir, settings);
}

}  // namespace

bool parseIpv4(const std::string& text, std::uint32_t& address) {
    address = 0;
    std::string::size_type start = 0;
    for (int part = 0; part < 4; ++part) {
        const std::string::size_type dot = text.find('.', start);
        if ((part < 3) == (dot == std::string::npos)) return false;
        unsigned value = 0;
        if (!parseSmallNumber(text.substr(start, dot - start), 255, value)) return false;
        address = address << 8 | value;
        start = dot + 1;
    }
    return true;
}

bool isAllowed(const std::vector<AddressBlock>& allowFrom, const std::string& dottedAddress) {
    if (allowFrom.empty()) return true;
    std::uint32_t address = 0;
    if (!parseIpv4(dottedAddress, address)) return false;
    for (const AddressBlock& block : allowFrom)
        if ((address & block.mask) == block.network) return true;
    return false;
}

PluginSettings readPluginSettings(const std::string& dir) {
    PluginSettings settings;
    StrictIni ini(EmptyValues::MeanAbsent);
    switch (ini.load(dir + "/" + kSettingsFile)) {
        case TextFileRead::Missing:
            break;
        case TextFileRead::Failed:
            settings.error = ini.error();
            break;
        case TextFileRead::Read:
            settings.error = layoutError(ini);
            if (settings.error.empty()) settings.error = readValues(ini, dir, settings);
            break;
    }
    return settings;
}

}  // namespace PluginRemoteCtrl
