// INI settings store: text values addressed by section and key, read from and written to files.
//
// Model. Every entry is stored under the composite key section + "|" + key, so section "a|b" with
// key "c" and section "a" with key "b|c" are one entry. The map orders composite keys byte-wise
// (bytes unsigned, a prefix first); that store order drives the section count, listings before
// their sort, save and print. Entries a file holds before its first header belong to section "!".
//
// File format. Lines end at LF; each line is cut at its first zero byte and trimmed of CR, blank
// and LF at both ends (tabs stay); empty lines are ignored. A line of two or more characters
// starting with "[" is a header naming everything between its first and last character. Any
// other line is an entry split at its first character that occurs in the separator: key before
// it, value from separator-length characters after it (nothing trimmed); with no such character
// the whole line is the key and the value is empty. There is no comment syntax. A repeated
// composite key replaces the earlier entry, index included. Entries are numbered 0, 1, 2... in
// file order; headers and ignored lines take no number.
//
// Result codes: load and save return 0 on success and -5 when the file cannot be opened; then
// lastError reads "Cannot open file " followed by the path tried. Nothing else fails: a read
// error mid-file ends the load like end of file, and write errors after opening are ignored.
//
// Settled choices:
// - load reads lines of any length whole, growing its buffer with getline's own growth rule.
// - With a separator longer than one character, a value that would start past the end of the
//   line is empty.
// - remove and removeSection reset the section-count cache to -1, like set.
// - lastError is readable through getLastError(); a successful load or save leaves it as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

struct IniItem {
    std::string section;
    std::string key;
    std::string value;
    std::int32_t index = 0;  // listings of a section are sorted by it
};

// Orders items by index, signed; ties are left in no defined order by the sort that uses it.
bool IniSortPredicate(const IniItem& a, const IniItem& b);

// One line of a file under the rules above: a header, an entry, or nothing (Empty).
struct IniLine {
    enum class Kind { Empty, Header, Entry };
    Kind kind = Kind::Empty;
    std::string section;  // Header
    std::string key;      // Entry
    std::string value;    // Entry
};

// Takes one line apart as load() does: `line` is the line's bytes, its LF included or not. The
// strict readers of this format (strictini.h) use it too, so the line rules live here only.
IniLine parseIniLine(const std::string& line, const std::string& separator);

class IniFile {
public:
    // Results of load and save.
    static constexpr int kOk = 0;
    static constexpr int kCannotOpen = -5;

    IniFile(const char* fileName, const char* separator);
    virtual ~IniFile();

    // Empties the store, sets the section count to 0, then reads `path` (fileName when null),
    // adding 1 to the section count per header line. 0, or -5 when the file cannot be opened
    // (the store stays empty).
    int load(const char* path);

    // Reads one line, LF included, into the malloc'd buffer *line of capacity *size. With a null
    // *line or a zero *size it allocates 120 bytes of its own; a caller's buffer of 60 bytes or
    // less is realloc'd to 120. A line that does not fit doubles the buffer's capacity. Returns the
    // line's length, or -1 at end of file, on a read error or a failed allocation (errno EINVAL for
    // null arguments). A buffer this call allocated is freed on failure (*line null, *size 0); any
    // other buffer is left to the caller.
    static int getline(FILE* stream, char** line, size_t* size);

    // Look-ups never create entries; a missing entry gives the default.
    std::string get(const char* section, const char* key, std::string def) const;
    int getInt(const char* section, const char* key, int def) const;           // str::toNumDef
    double getDouble(const char* section, const char* key, double def) const;  // str::toNumDef
    // Empty or missing gives def; otherwise true exactly for "true" and "1" (case-sensitive).
    bool getBool(const char* section, const char* key, bool def) const;
    bool itemExists(const char* section, const char* key) const;

    // Cached. A load leaves it at the number of header lines read (repeats counted, entries
    // before the first header not); set, remove and removeSection reset it to -1, after which
    // it is recomputed as the number of changes of section name in store order, starting from
    // the empty name (so a leading run of empty-named entries is not counted).
    int getSectionCount();

    // Copies of the section's entries sorted by index; equal indexes in no defined order.
    std::vector<IniItem> getSectionItems(const char* section) const;
    std::vector<std::string> getSectionKeys(const char* section) const;

    // Create or replace section/key. A replaced entry keeps its index; a new one gets the
    // number of entries held before it. Numbers are written as a default std::ostringstream
    // in the classic locale writes them (int: 59876, -5; double: 0.5, 2, 3.14159, 1e+06).
    void set(const char* section, const char* key, const char* value);
    void set(const char* section, const char* key, int value);
    void set(const char* section, const char* key, double value);
    void remove(const char* section, const char* key);
    void removeSection(const char* section);

    // Writes the store in store order to `path` (fileName when null): "[section]\r\n" before
    // each section's entries, "key<separator>value\r\n" per entry, a bare "\n" before every
    // header but the file's first line, and no header for section "!" when it comes first.
    // 0, or -5 when the file cannot be created (the store is unchanged).
    int save(const char* path);

    // Writes "section: key=value" per entry in store order to standard output, flushing each
    // line; "=" is fixed whatever the separator. Always 0.
    int print();

    const std::string& getLastError() const { return lastError; }

private:
    void addLine(const IniLine& line, std::string& section, int& entryCount);
    void store(const std::string& section, const std::string& key, std::string value);
    const IniItem* find(const char* section, const char* key) const;

    std::string fileName;
    std::string separator;
    std::map<std::string, IniItem> items;
    std::string lastError;
    std::int32_t sectionCount = -1;
};
