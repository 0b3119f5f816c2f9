#include "settings/inifile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <locale>
#include <sstream>
#include <utility>

#include "settings/str.h"

namespace {

constexpr const char* FIRST_SECTION = "!";
constexpr const char* TRIMMED = "\r \n";

std::string compositeKey(const std::string& section, const std::string& key) {
    return section + "|" + key;
}

bool isHeader(const std::string& line) {
    return line.size() >= 2 && line[0] == '[';
}

// Moves the buffer to `capacity` bytes; on failure the old buffer stays valid and in place.
bool resizeBuffer(char** line, size_t* size, size_t capacity) {
    char* moved = static_cast<char*>(std::realloc(*line, capacity));
    if (moved == nullptr) return false;
    *line = moved;
    *size = capacity;
    return true;
}

int failRead(char** line, size_t* size, bool ownBuffer) {
    if (ownBuffer) {
        std::free(*line);
        *line = nullptr;
        *size = 0;
    }
    return -1;
}

// The stream's default formatting, pinned to the classic locale so that a global locale with
// digit grouping cannot change what lands in the file.
template <typename T>
std::string numberText(T value) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << value;
    return out.str();
}

}  // namespace

bool IniSortPredicate(const IniItem& a, const IniItem& b) {
    return a.index < b.index;
}

IniLine parseIniLine(const std::string& line, const std::string& separator) {
    const std::string text = str::trim(line.substr(0, line.find('\0')), TRIMMED);
    IniLine parsed;
    if (text.empty()) return parsed;
    if (isHeader(text)) {
        parsed.kind = IniLine::Kind::Header;
        parsed.section = text.substr(1, text.size() - 2);
        return parsed;
    }
    parsed.kind = IniLine::Kind::Entry;
    const std::size_t split = text.find_first_of(separator);
    parsed.key = text.substr(0, split);
    if (split == std::string::npos) return parsed;
    const std::size_t valueStart = split + separator.size();
    if (valueStart < text.size()) parsed.value = text.substr(valueStart);
    return parsed;
}

IniFile::IniFile(const char* fileName, const char* separator)
    : fileName(fileName), separator(separator) {}

IniFile::~IniFile() = default;

int IniFile::load(const char* path) {
    // Emptied before opening: a failed load leaves no stale settings behind.
    items.clear();
    sectionCount = 0;
    const char* used = path != nullptr ? path : fileName.c_str();
    FILE* file = std::fopen(used, "r");
    if (file == nullptr) {
        lastError = str::format("Cannot open file %s", used);
        return kCannotOpen;
    }
    std::string section = FIRST_SECTION;
    int entryCount = 0;
    char* buffer = nullptr;
    size_t capacity = 0;
    int length;
    while ((length = getline(file, &buffer, &capacity)) >= 0)
        addLine(parseIniLine(std::string(buffer, static_cast<std::size_t>(length)), separator),
                section, entryCount);
    // The first call allocated the buffer; from then on it is ours, so end of file leaves it.
    std::free(buffer);
    std::fclose(file);
    return kOk;
}

void IniFile::addLine(const IniLine& line, std::string& section, int& entryCount) {
    if (line.kind == IniLine::Kind::Header) {
        section = line.section;
        ++sectionCount;
    } else if (line.kind == IniLine::Kind::Entry) {
        items[compositeKey(section, line.key)] =
            IniItem{section, line.key, line.value, entryCount++};
    }
}

int IniFile::getline(FILE* stream, char** line, size_t* size) {
    if (line == nullptr || size == nullptr) {
        errno = EINVAL;
        return -1;
    }
    bool ownBuffer = false;
    if (*line == nullptr || *size == 0) {
        *line = nullptr;
        *size = 0;
        if (!resizeBuffer(line, size, 120)) return -1;
        ownBuffer = true;
    } else if (*size <= 60 && !resizeBuffer(line, size, 120)) {
        return -1;
    }

    size_t offset = 0;
    for (;;) {
        char* at = *line + offset;
        if (std::fgets(at, static_cast<int>(*size - offset), stream) == nullptr) {
            // The previous pass filled the buffer exactly with a last line that had no LF.
            if (std::feof(stream) && offset > 0) return static_cast<int>(offset);
            return failRead(line, size, ownBuffer);
        }
        if (std::feof(stream)) return static_cast<int>(offset + std::strlen(at));
        const void* lf = std::memchr(at, '\n', *size - 1 - offset);
        if (lf != nullptr) return static_cast<int>(static_cast<const char*>(lf) - *line + 1);

        offset = *size - 1;
        const size_t grown = *size * 2;  // never below 61: a smaller buffer was replaced
        if (grown > static_cast<size_t>(INT_MAX) || !resizeBuffer(line, size, grown)) {
            return failRead(line, size, ownBuffer);
        }
    }
}

const IniItem* IniFile::find(const char* section, const char* key) const {
    const auto found = items.find(compositeKey(section, key));
    return found == items.end() ? nullptr : &found->second;
}

std::string IniFile::get(const char* section, const char* key, std::string def) const {
    const IniItem* item = find(section, key);
    return item == nullptr ? def : item->value;
}

int IniFile::getInt(const char* section, const char* key, int def) const {
    return str::toNumDef<int>(get(section, key, ""), def);
}

double IniFile::getDouble(const char* section, const char* key, double def) const {
    return str::toNumDef<double>(get(section, key, ""), def);
}

bool IniFile::getBool(const char* section, const char* key, bool def) const {
    const std::string value = get(section, key, "");
    if (value.empty()) return def;
    return value == "true" || value == "1";
}

bool IniFile::itemExists(const char* section, const char* key) const {
    return find(section, key) != nullptr;
}

int IniFile::getSectionCount() {
    if (sectionCount != -1) return sectionCount;
    // Counting changes of name from an empty start: a leading empty-named run adds nothing.
    const std::string noName;
    const std::string* previous = &noName;
    int count = 0;
    for (const auto& entry : items) {
        const std::string& section = entry.second.section;
        if (section != *previous) ++count;
        previous = &section;
    }
    sectionCount = count;
    return count;
}

std::vector<IniItem> IniFile::getSectionItems(const char* section) const {
    std::vector<IniItem> listed;
    for (const auto& entry : items) {
        if (entry.second.section == section) listed.push_back(entry.second);
    }
    std::sort(listed.begin(), listed.end(), IniSortPredicate);
    return listed;
}

std::vector<std::string> IniFile::getSectionKeys(const char* section) const {
    std::vector<std::string> keys;
    for (IniItem& item : getSectionItems(section))
        keys.push_back(std::move(item.key));
    return keys;
}

void IniFile::store(const std::string& section, const std::string& key, std::string value) {
    sectionCount = -1;
    std::string composite = compositeKey(section, key);
    const auto found = items.find(composite);
    const std::int32_t index =
        found != items.end() ? found->second.index : static_cast<std::int32_t>(items.size());
    items[std::move(composite)] = IniItem{section, key, std::move(value), index};
}

void IniFile::set(const char* section, const char* key, const char* value) {
    store(section, key, value);
}

void IniFile::set(const char* section, const char* key, int value) {
    store(section, key, numberText(value));
}

void IniFile::set(const char* section, const char* key, double value) {
    store(section, key, numberText(value));
}

void IniFile::remove(const char* section, const char* key) {
    sectionCount = -1;
    items.erase(compositeKey(section, key));
}

void IniFile::removeSection(const char* section) {
    sectionCount = -1;
    for (auto it = items.begin(); it != items.end();) {
        it = it->second.section == section ? items.erase(it) : std::next(it);
    }
}

int IniFile::save(const char* path) {
    const char* used = path != nullptr ? path : fileName.c_str();
    FILE* file = std::fopen(used, "w");
    if (file == nullptr) {
        lastError = str::format("Cannot open file %s", used);
        return kCannotOpen;
    }
    std::string previous = FIRST_SECTION;
    bool first = true;
    for (const auto& entry : items) {
        const IniItem& item = entry.second;
        if (item.section != previous) {
            // The empty line before a header is a bare LF while every other line ends in
            // CR LF; readers trim both, and the mix is the established file layout.
            if (!first) std::fputc('\n', file);
            std::fprintf(file, "[%s]\r\n", item.section.c_str());
            previous = item.section;
        }
        std::fprintf(file, "%s%s%s\r\n", item.key.c_str(), separator.c_str(), item.value.c_str());
        first = false;
    }
    std::fclose(file);
    return kOk;
}

int IniFile::print() {
    for (const auto& entry : items) {
        const IniItem& item = entry.second;
        std::cout << item.section << ": " << item.key << "=" << item.value << std::endl;
    }
    return 0;
}
