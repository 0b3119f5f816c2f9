#include "plugin/settings.h"

#include <cmath>
#include <cstdlib>

#include "settings/inifile.h"

namespace PluginRemoteCtrl {

namespace {

std::string trimmedBlanks(const std::string& text) {
    const std::string::size_type first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

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

bool parseAllowList(const std::string& text, std::vector<AddressBlock>& blocks) {
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type comma = text.find(',', start);
        AddressBlock block{};
        if (!parseBlock(trimmedBlanks(text.substr(start, comma - start)), block)) return false;
        blocks.push_back(block);
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

bool parseSeconds(const std::string& text, double& seconds) {
    char* end = nullptr;
    seconds = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && std::isfinite(seconds) && seconds >= 0.0 &&
           text.find_first_of("xXpPnN") == std::string::npos;  // no hex, inf or nan forms
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
    IniFile file((dir + "/" + kSettingsFile).c_str(), "=");
    file.load(nullptr);
    settings.port = file.getInt(kSettingsSection, kPortKey, settings.port);
    const auto invalid = [&](const char* key, const std::string& value) {
        if (settings.invalidKey.empty()) {
            settings.invalidKey = key;
            settings.invalidValue = value;
        }
    };
    std::uint32_t ignored = 0;
    const std::string address = trimmedBlanks(file.get(kSettingsSection, "Address", ""));
    if (!address.empty() && !parseIpv4(address, ignored)) invalid("Address", address);
    settings.address = address;
    const std::string allowFrom = file.get(kSettingsSection, "AllowFrom", "");
    if (!trimmedBlanks(allowFrom).empty() && !parseAllowList(allowFrom, settings.allowFrom))
        invalid("AllowFrom", allowFrom);
    const std::string idle = trimmedBlanks(file.get(kSettingsSection, "IdleTimeout", ""));
    if (!idle.empty() && !parseSeconds(idle, settings.idleTimeout)) invalid("IdleTimeout", idle);
    return settings;
}

}  // namespace PluginRemoteCtrl
