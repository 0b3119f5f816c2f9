#include "apps/znhost/portsettings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "plugin/settings.h"
#include "settings/inifile.h"

namespace znhost {

namespace {

constexpr int kHighestPort = 65535;
constexpr std::size_t kMostPortDigits = 5;

std::string settingsFile(const std::string& dir) {
    return dir + "/" + PluginRemoteCtrl::kSettingsFile;
}

}  // namespace

bool PortSettings::create(const std::string& userDir, int port, std::string& error) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "znhost-settings.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        error = "cannot create a settings folder: " + std::string(std::strerror(errno));
        return false;
    }
    mDir = pattern;
    IniFile file(settingsFile(userDir).c_str(), "=");
    file.load(nullptr);  // without a file of the user's, the port is all there is
    file.set(PluginRemoteCtrl::kSettingsSection, PluginRemoteCtrl::kPortKey, port);
    if (file.save(settingsFile(mDir).c_str()) == IniFile::kOk) return true;
    error = file.getLastError();
    return false;
}

PortSettings::~PortSettings() {
    std::error_code ignored;
    if (!mDir.empty()) std::filesystem::remove_all(mDir, ignored);
}

bool parsePort(const std::string& text, int& port) {
    if (text.empty() || text.size() > kMostPortDigits ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    port = std::atoi(text.c_str());
    return port >= 1 && port <= kHighestPort;
}

}  // namespace znhost
