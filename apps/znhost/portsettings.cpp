#include "apps/znhost/portsettings.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "protocol/settings_file.h"
#include "settings/textfile.h"

namespace znhost {

namespace {

std::string settingsFile(const std::string& dir) {
    return dir + "/" + protocol::kSettingsFile;
}

// Of two lines with the same key the later one counts, so lines at the end override the port
// whatever the user's file holds; the leading line feed ends a last line that has none.
std::string withPort(const std::string& userBytes, int port) {
    return userBytes + "\n[" + protocol::kSettingsSection + "]\n" + protocol::kPortKey + "=" +
           std::to_string(port) + "\n";
}

bool writeFile(const std::string& path, const std::string& bytes, std::string& error) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    bool written =
        file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file != nullptr && std::fclose(file) != 0) written = false;
    if (!written) error = path + ": cannot write: " + std::strerror(errno);
    return written;
}

}  // namespace

bool PortSettings::create(const std::string& userDir, int port, std::string& error,
                          const std::string& tempBase) {
    std::string userBytes;
    if (readTextFile(settingsFile(userDir), userBytes, error) == TextFileRead::Failed) return false;
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
    return writeFile(settingsFile(mDir), withPort(userBytes, port), error);
}

PortSettings::~PortSettings() {
    std::error_code ignored;
    if (!mDir.empty()) std::filesystem::remove_all(mDir, ignored);
}

}  // namespace znhost
