// Fuzzes the plug-in's settings reader with any bytes as the whole of remotectrl.ini: reading must
// not crash, and the result is settings or one error line that names the file.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "plugin/settings.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const testsupport::TempDir settingsDir;
    const std::string path = settingsDir.file("remotectrl.ini");
    testsupport::writeFile(path, std::string(reinterpret_cast<const char*>(data), size));
    const std::string error = PluginRemoteCtrl::readPluginSettings(settingsDir.path()).error;
    FUZZ_CHECK(error.empty() || error.find(path) != std::string::npos, "an error names the file");
    FUZZ_CHECK(error.find('\n') == std::string::npos, "an error is one line");
    return 0;
}
