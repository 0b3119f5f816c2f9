#include "settings/strictini.h"

#include <algorithm>
#include <cmath>
#include <locale>
#include <sstream>

#include "settings/inifile.h"
#include "settings/str.h"

namespace {

constexpr const char* kSeparator = "=";
constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kValueBlanks = " \t";
constexpr const char* kWholeCharacters = "0123456789+-";
// What a decimal number may hold; hexadecimal, infinity and NaN forms need other letters.
constexpr const char* kRealCharacters = "0123456789+-.eE";

// All of `text` as one number read in the classic locale, whatever locale the process runs in
// (a host may have set one with a decimal comma).
template <typename T>
bool parseNumber(const std::string& text, const char* characters, T& number) {
    if (text.find_first_not_of(characters) != std::string::npos) return false;
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    return static_cast<bool>(in >> number) && in.eof();
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

}  // namespace

TextFileRead StrictIni::load(const std::string& path) {
    mPath = path;
    mSections.clear();
    std::string bytes;
    const TextFileRead read = readTextFile(path, bytes, mError);
    if (read != TextFileRead::Read) return read;
    std::string section = kNoSection;
    std::size_t start = bytes.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
    while (start < bytes.size()) {
        const std::size_t end = std::min(bytes.find('\n', start), bytes.size());
        addLine(parseIniLine(bytes.substr(start, end - start), kSeparator), section);
        start = end + 1;
    }
    return read;
}

void StrictIni::addLine(const IniLine& line, std::string& section) {
    if (line.kind == IniLine::Kind::Header) {
        section = line.section;
        sectionNamed(section);
    }
    if (line.kind != IniLine::Kind::Entry) return;
    auto& entries = sectionNamed(section).entries;
    for (auto& entry : entries) {
        if (entry.first != line.key) continue;
        entry.second = line.value;
        return;
    }
    entries.emplace_back(line.key, line.value);
}

StrictIni::Section& StrictIni::sectionNamed(const std::string& name) {
    for (Section& section : mSections)
        if (section.name == name) return section;
    mSections.push_back(Section{name, {}});
    return mSections.back();
}

const std::string* StrictIni::find(const std::string& section, const std::string& key) const {
    for (const Section& each : mSections) {
        if (each.name != section) continue;
        for (const auto& entry : each.entries)
            if (entry.first == key) return &entry.second;
    }
    return nullptr;
}

std::vector<std::string> StrictIni::sections() const {
    std::vector<std::string> names;
    for (const Section& section : mSections)
        names.push_back(section.name);
    return names;
}

std::vector<std::string> StrictIni::keys(const std::string& section) const {
    std::vector<std::string> names;
    for (const Section& each : mSections)
        if (each.name == section)
            for (const auto& entry : each.entries)
                names.push_back(entry.first);
    return names;
}

std::string StrictIni::text(const std::string& section, const std::string& key) const {
    const std::string* value = find(section, key);
    return value == nullptr ? std::string() : str::trim(*value, kValueBlanks);
}

bool StrictIni::checkSections(const std::function<bool(const std::string&)>& isKnown) {
    for (const Section& section : mSections) {
        if (isKnown(section.name)) continue;
        if (section.name == kNoSection && !section.entries.empty()) {
            mError =
                mPath + ": " + section.entries.front().first + ": entry before the first section";
            return false;
        }
        return fail(section.name, "", "unknown section");
    }
    return true;
}

bool StrictIni::checkKeys(const std::string& section, std::initializer_list<const char*> known) {
    for (const std::string& key : keys(section)) {
        const bool isKnown =
            std::any_of(known.begin(), known.end(), [&](const char* name) { return key == name; });
        if (!isKnown) return fail(section, key, "unknown key");
    }
    return true;
}

bool StrictIni::valueOf(const std::string& section, const char* key, std::string& trimmed) {
    trimmed = text(section, key);
    if (!trimmed.empty() || mEmptyValues == EmptyValues::MeanAbsent ||
        find(section, key) == nullptr)
        return true;
    return fail(section, key, "empty value");
}

bool StrictIni::readText(const std::string& section, const char* key, std::string& value) {
    std::string trimmed;
    if (!valueOf(section, key, trimmed)) return false;
    if (!trimmed.empty()) value = trimmed;
    return true;
}

bool StrictIni::readWhole(const std::string& section, const char* key, int& value, long min,
                          long max) {
    std::string trimmed;
    if (!valueOf(section, key, trimmed)) return false;
    if (trimmed.empty()) return true;
    long number = 0;
    if (!parseNumber(trimmed, kWholeCharacters, number) || number < min || number > max)
        return fail(section, key,
                    quoted(trimmed) + " is not a whole number from " + std::to_string(min) +
                        " to " + std::to_string(max));
    value = static_cast<int>(number);
    return true;
}

bool StrictIni::readReal(const std::string& section, const char* key, double& value, double min) {
    std::string trimmed;
    if (!valueOf(section, key, trimmed)) return false;
    if (trimmed.empty()) return true;
    double number = 0.0;
    if (!parseNumber(trimmed, kRealCharacters, number) || !std::isfinite(number))
        return fail(section, key, quoted(trimmed) + " is not a finite number");
    if (number < min)
        return fail(section, key, quoted(trimmed) + " is below " + str::format("%g", min));
    value = number;
    return true;
}

bool StrictIni::readBool(const std::string& section, const char* key, bool& value) {
    std::string trimmed;
    if (!valueOf(section, key, trimmed)) return false;
    if (trimmed.empty()) return true;
    if (trimmed != "true" && trimmed != "false" && trimmed != "1" && trimmed != "0")
        return fail(section, key, quoted(trimmed) + " is not true, false, 1 or 0");
    value = trimmed == "true" || trimmed == "1";
    return true;
}

bool StrictIni::fail(const std::string& section, const std::string& key,
                     const std::string& reason) {
    mError = mPath + ": [" + section + "]" + (key.empty() ? "" : " " + key) + ": " + reason;
    return false;
}
