// Fuzzes the INI store's reader and writer: arbitrary file bytes are loaded, saved, loaded and
// saved again, and the two saved files must be byte-identical. The same bytes also go through
// the store's own line reader.
//
// The one store a save cannot write back holds an entry whose key is a lone "[" (from a line that
// is just that bracket): it is written as the line "[=", which reads back as a header. No other
// saved line is "[=" (a header keeps its closing bracket), so for input whose first save holds
// that line only the later round trips must agree.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "settings/inifile.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace {

// Loads `from` into a fresh store and saves it to `to`; returns the saved bytes.
std::string loadAndSave(const std::string& from, const std::string& to) {
    IniFile ini(from.c_str(), "=");
    FUZZ_CHECK(ini.load(nullptr) == IniFile::kOk, "an existing file loads");
    FUZZ_CHECK(ini.save(to.c_str()) == IniFile::kOk, "a writable file saves");
    return testsupport::readFile(to);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const testsupport::TempDir scratch;  // one for the process: an input costs no folder
    FUZZ_CHECK(scratch.ok(), "a scratch folder");
    static const std::string input = scratch.file("input.ini");
    static const std::string first = scratch.file("first.ini");
    static const std::string second = scratch.file("second.ini");

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    testsupport::writeFile(input, bytes);
    fuzzsupport::checkLineReader<size_t>(&IniFile::getline, input, bytes);

    const std::string firstSave = loadAndSave(input, first);
    const std::string secondSave = loadAndSave(first, second);
    if (("\n" + firstSave).find("\n[=\r\n") == std::string::npos) {
        FUZZ_CHECK(secondSave == firstSave, "saving what a save wrote changes nothing");
    } else {
        FUZZ_CHECK(loadAndSave(second, first) == secondSave,
                   "saving what a save wrote changes nothing after the first round");
    }
    return 0;
}
