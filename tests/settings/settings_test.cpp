// String formatting and number reading, and the INI store. A store is shown as print() shows it:
// "section: key=value" per entry in store order.
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "settings/inifile.h"
#include "settings/str.h"
#include "tests/support/files.h"
#include "tests/support/line_reader.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(StrFormat, FormatsAnyLengthAndEndsAtAZeroOrAnError) {
    const std::string middle(507, 'm');  // 512 bytes in all: one more than the first pass holds
    EXPECT_EQ(str::format("%d<%s>%d", -1, middle.c_str(), 2), "-1<" + middle + ">2");
    EXPECT_EQ(str::format("ab%cde", 0), "ab");
    // A wide character the "C" locale cannot convert is an output error of the C library.
    const std::string failed = str::format("abc%ls", L"\u0100");
    EXPECT_EQ(failed, std::string("abc").substr(0, failed.size()));
}

// Everything must read exactly as the stream reads it: the edges of the int and double ranges,
// forms the stream refuses, a number too long for the short-token buffer, and short texts over
// the characters that steer the scanners. Doubles compare bit for bit, so -0.0 is not 0.0.
TEST(StrToNumDef, AgreesWithTheStream) {
    const auto stream = [](const std::string& text, auto def) {
        std::istringstream in(text);
        auto value = def;
        return in >> value ? value : def;
    };
    std::vector<std::string> texts = {
        "2147483647", "2147483648", "-2147483648", "-2147483649", "99999999999999999999",
        "1e308",      "1.8e308",    "-1e999",      "4.9e-324",    "2e-324",
        "1e-400",     "-0",         " \v\f\r42",   "inf",         "nan"};
    texts.insert(texts.end(), {"0x1p3", "0." + std::string(100, '3'), std::string(1, '\0') + "5"});
    const std::string alphabet = "0123456789++--..eeEExX \t\nab0099";
    std::mt19937 random(20240611);
    for (int i = 0; i < 5000; ++i) {
        texts.emplace_back(random() % 15, ' ');
        for (char& c : texts.back())
            c = alphabet[random() % alphabet.size()];
    }
    for (const std::string& text : texts) {
        ASSERT_EQ(str::toNumDef<int>(text, -99), stream(text, -99)) << text;
        const double read = str::toNumDef<double>(text, -9.5), ref = stream(text, -9.5);
        ASSERT_EQ(std::memcmp(&read, &ref, sizeof read), 0) << text;
    }
}

TEST(IniGetline, GrowsItsBufferAndOwnsOnlyWhatItAllocated) {
    EXPECT_EQ(testsupport::lineReaderFailures<size_t>(&IniFile::getline), "");
}

std::string printed(IniFile& ini) {
    testing::internal::CaptureStdout();
    return ini.print() == 0 ? testing::internal::GetCapturedStdout() : "<print failed>";
}

// A file's bytes and what a store loads from them: the section count and print().
const std::string kLong(20000, 'x');
struct FileRow {
    const char* name;
    std::string bytes;
    int sections;
    std::string printed;
};

const FileRow kFileRows[] = {
    {"LongLineReadWhole", "k=" + kLong + "\nk2=1\n", 0, "!: k=" + kLong + "\n!: k2=1\n"},
    {"BareKeyBeforeFirstHeader", "Mode\n[S]\nk=v\n", 1, "!: Mode=\nS: k=v\n"},
    {"CrLfAndBlanksTrimmed", " \r \n  [S]  \r\n k = v \r\n", 1, "S: k = v\n"},
    {"EmptyBracketsNameEmptySection", "[]\nk=v\n", 1, ": k=v\n"},
    {"HeaderWithoutClosingBracket", "[Other\nk=7\n", 1, "Othe: k=7\n"},
    {"ZeroByteCutsTheLine", std::string("k=v\0tail\n", 9), 0, "!: k=v\n"},
    {"RepeatedKeyReplaces", "[S]\nk=1\n[T]\n[S]\nk=2\n", 3, "S: k=2\n"},
    {"CompositeKeysCollide", "[a|b]\nc=1\n[a]\nb|c=2\n", 2, "a: b|c=2\n"},
};

class IniFileLoad : public ::testing::TestWithParam<FileRow> {};

TEST_P(IniFileLoad, ReadsTheEntries) {
    const FileRow& row = GetParam();
    const testsupport::TempDir dir;
    testsupport::writeFile(dir.file("in.ini"), row.bytes);
    IniFile ini(dir.file("in.ini").c_str(), "=");
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(ini.getSectionCount(), row.sections);
    EXPECT_EQ(printed(ini), row.printed);
}

INSTANTIATE_TEST_SUITE_P(Rows, IniFileLoad, ::testing::ValuesIn(kFileRows), testsupport::RowName());

// The separator is the object's; one longer than a character may put a value past the line end.
// A failed open names the path tried and empties the store; a success leaves the message.
TEST(IniFile, SavesInStoreOrderWithTheObjectsSeparatorAndNamesThePathItCannotOpen) {
    const testsupport::TempDir dir;
    const std::string path = dir.file("out.ini"), missing = dir.file("none");
    IniFile ini(path.c_str(), ":=");
    ini.set("!", "Mode", "fast");
    ini.set("S", "k", "");
    ASSERT_EQ(ini.save(nullptr), IniFile::kOk);
    EXPECT_EQ(testsupport::readFile(path), "Mode:=fast\r\n\n[S]\r\nk:=\r\n");
    ini.set(" x", "k", "v");
    ASSERT_EQ(ini.save(nullptr), IniFile::kOk);
    EXPECT_EQ(testsupport::readFile(path),
              "[ x]\r\nk:=v\r\n\n[!]\r\nMode:=fast\r\n\n[S]\r\nk:=\r\n");
    EXPECT_EQ(ini.save(dir.path().c_str()), IniFile::kCannotOpen);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + dir.path());
    EXPECT_EQ(ini.load(missing.c_str()), IniFile::kCannotOpen);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing);
    EXPECT_EQ(printed(ini) + std::to_string(ini.getSectionCount()), "0") << "the store is emptied";
    testsupport::writeFile(path, "a:\nb=\nc:=v\nd=:w\n");
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing);
    EXPECT_EQ(printed(ini), "!: a=\n!: b=\n!: c=v\n!: d=w\n") << "print always writes '='";
}

// Keys with their indexes in listing order, as "key#index ".
std::string listed(const IniFile& ini, const char* section) {
    std::string text;
    for (const IniItem& item : ini.getSectionItems(section))
        text += item.key + "#" + std::to_string(item.index) + " ";
    return text;
}

TEST(IniFile, EditsKeepIndexesResetTheSectionCountAndLookUpsFallBackToDefaults) {
    const testsupport::TempDir dir;
    testsupport::writeFile(dir.file("e.ini"), "[S]\nb=0\na=1\nb=2\n[S]\nc=3\n[T]\nd=4\n");
    IniFile ini(dir.file("e.ini").c_str(), "=");
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(ini.getSectionCount(), 3);
    ini.set("S", "a", "x");
    ini.set("S", "e", 5);
    EXPECT_EQ(listed(ini, "S"), "a#1 b#2 c#3 e#4 ") << "a new entry is numbered by the count held";
    EXPECT_EQ(ini.getSectionCount(), 2);
    ini.remove("T", "d");
    EXPECT_EQ(ini.getSectionCount(), 1);
    ini.set("", "0", "v");
    ini.set("~", "1", "v");
    ini.removeSection("S");
    EXPECT_EQ(ini.getSectionCount(), 1) << "a leading empty-named run is not counted";
    EXPECT_EQ(ini.get("S", "k", "d") + std::to_string(ini.getInt("S", "k", 5)), "d5");
    EXPECT_EQ(ini.getDouble("S", "k", 2.5), 2.5);
    std::string bools;
    for (const char* value : {"true", "1", "TRUE", " 1", ""}) {
        ini.set("S", "b", value);
        bools += std::to_string(ini.getBool("S", "b", true)) +
                 std::to_string(ini.getBool("S", "b", false)) + " ";
    }
    EXPECT_EQ(bools, "11 11 00 00 10 ") << "only true and 1 are true; empty is the default";
    EXPECT_FALSE(ini.itemExists("S", "none") || ini.getBool("S", "none", false));
    std::string numbers;
    ini.set("S", "k", -7);
    for (double value : {0.5, 2.0, 3.14159265, 100000.0, 1e6, 0.00001}) {
        ini.set("S", "d", value);
        numbers += ini.get("S", "d", "") + " ";
    }
    EXPECT_EQ(ini.get("S", "k", "") + " " + numbers, "-7 0.5 2 3.14159 100000 1e+06 1e-05 ");
}

}  // namespace
