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

bool PortSettings::create(const std::string& userDir, int port, std::string& error,
                          const std::string& tempBase) {
    // A TMPDIR that names no folder must end in a message, not in an exception.
    std::error_code noTempFolder;
    const std::filesystem::path base = tempBase.empty()
                                           ? std::filesystem::temp_directory_path(noTempFolder)
                                           : std::filesystem::path(tempBase);
    std::string pattern = (base / "znhost-settings.XXXXXX").string();
    if (noTempFolder || mkdtemp(pattern.data()) == nullptr) {
        error = "cannot create a settings folder in " + base.string() + ": " +
                std::strerror(noTempFolder ? noTempFolder.value() : errno);
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
