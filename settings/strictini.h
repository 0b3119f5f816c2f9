// A settings file read strictly, for readers that must refuse what they do not understand rather
// than guess: the INI store's line rules (inifile.h) with "=" between key and value, and on top
// of them:
//
// - A UTF-8 byte-order mark at the very start of the file is skipped (editors on other systems
//   write one); anywhere else its bytes are ordinary text.
// - sections() lists every section in the order of its first header, also one without entries
//   (a bare header can mean "everything at its default"). Entries before the first header belong
//   to the section "!", as in the store. A repeated header joins the earlier section; a repeated
//   key replaces the earlier value.
// - The caller declares what it knows: checkSections() and checkKeys() make everything else an
//   error. The typed getters trim blanks and tabs around a value and refuse one that does not
//   parse whole.
// - Errors are one line, kept in error(): "FILE: reason" for the file itself (see textfile.h),
//   "FILE: [SECTION]: reason" for a section, "FILE: [SECTION] KEY: reason" for a key or value,
//   with the names as the file spells them. Every failing call replaces it and returns false,
//   so a caller chains its checks with && and reports the first fault.
#pragma once

#include <climits>
#include <functional>
#include <initializer_list>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "settings/textfile.h"

struct IniLine;

// What a value that is empty after trimming means to the typed getters.
enum class EmptyValues { AreErrors, MeanAbsent };

class StrictIni {
public:
    // The section of the entries before the first header.
    static constexpr const char* kNoSection = "!";

    explicit StrictIni(EmptyValues emptyValues) : mEmptyValues(emptyValues) {}

    // Empties the object and reads `path`; results and error() as readTextFile gives them.
    TextFileRead load(const std::string& path);

    const std::string& path() const { return mPath; }
    const std::string& error() const { return mError; }

    std::vector<std::string> sections() const;
    // The section's keys in the order of their first line; empty for an unknown section.
    std::vector<std::string> keys(const std::string& section) const;
    // The value trimmed of blanks and tabs; "" when the key is absent.
    std::string text(const std::string& section, const std::string& key) const;

    // Every section must satisfy `isKnown`: "FILE: [SECTION]: unknown section" for the first that
    // does not, or "FILE: KEY: entry before the first section" when that is "!" holding entries.
    bool checkSections(const std::function<bool(const std::string&)>& isKnown);
    // Every key of `section` must be one of `known`: "FILE: [SECTION] KEY: unknown key".
    bool checkKeys(const std::string& section, std::initializer_list<const char*> known);

    // The getters leave `value` as it is and return true when the key is absent, or empty with
    // EmptyValues::MeanAbsent ("empty value" is the error with AreErrors).
    bool readText(const std::string& section, const char* key, std::string& value);
    // Decimal digits with an optional sign, from `min` to `max`.
    bool readWhole(const std::string& section, const char* key, int& value, long min = INT_MIN,
                   long max = INT_MAX);
    // A finite decimal number of at least `min`: digits, a point, an exponent; no hexadecimal,
    // infinity or NaN forms. Seconds are read with `min` 0.
    bool readReal(const std::string& section, const char* key, double& value,
                  double min = std::numeric_limits<double>::lowest());
    // true, false, 1 or 0.
    bool readBool(const std::string& section, const char* key, bool& value);

    // Reports a fault the caller found, in the same format (an empty `key` for the section
    // itself); always false.
    bool fail(const std::string& section, const std::string& key, const std::string& reason);

private:
    struct Section {
        std::string name;
        std::vector<std::pair<std::string, std::string>> entries;  // key, value
    };

    void addLine(const IniLine& line, std::string& section);
    Section& sectionNamed(const std::string& name);
    const std::string* find(const std::string& section, const std::string& key) const;
    // False with error() set for an empty value that counts as an error; `trimmed` is empty when
    // the getter has nothing to read.
    bool valueOf(const std::string& section, const char* key, std::string& trimmed);

    EmptyValues mEmptyValues;
    std::string mPath;
    std::string mError;
    std::vector<Section> mSections;
};
