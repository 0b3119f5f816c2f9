// String formatting and number reading, and the INI store. A store is shown as print() shows it:
// "section: key=value" per entry in store order.
#include <cerrno>
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
    for (const size_t length : {0, 511, 512, 5000}) {
        const std::string text(length, 'a');
        EXPECT_EQ(str::format("%s", text.c_str()), text);
    }
    const std::string middle(600, 'm');
    EXPECT_EQ(str::format("%d<%s>%d", -1, middle.c_str(), 2), "-1<" + middle + ">2");
    EXPECT_EQ(str::format("ab%cde", 0), "ab");
    // A wide character the "C" locale cannot convert is an output error of the C library.
    const std::string failed = str::format("abc%ls", L"\u0100");
    EXPECT_EQ(failed, std::string("abc").substr(0, failed.size()));
}

template <typename T>
T streamReference(const std::string& text, T def) {
    std::istringstream in(text);
    T value{};
    in >> value;
    return in.fail() ? def : value;
}

// Equal bit for bit, so that -0.0 and 0.0 differ.
bool same(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(StrToNumDef, ReadsTheDocumentedExamples) {
    EXPECT_EQ(str::toNumDef<int>("0x1F", -1) + str::toNumDef<int>("4.9", -1), 4);
    EXPECT_EQ(str::toNumDef<int>("2147483648", -1), -1);
    for (const char* text : {"1e", "1e+", "1e999", "inf", "nan"})
        EXPECT_EQ(str::toNumDef<double>(text, -1.5), -1.5) << text;
    EXPECT_EQ(str::toNumDef<double>("0x1p3", -1.5), 0.0) << "no hexadecimal form";
}

// Everything else must read exactly as the stream reads it: the edges of the int and double
// ranges, a number too long for the short-token buffer, and short texts over the characters that
// steer the scanners.
TEST(StrToNumDef, AgreesWithTheStream) {
    std::vector<std::string> texts = {
        "2147483647", "2147483648", "-2147483648", "-2147483649", "99999999999999999999",
        "1e308",      "1.8e308",    "-1e999",      "4.9e-324",    "2e-324",
        "1e-400",     "-0",         " \v\f\r42"};
    texts.push_back("0." + std::string(100, '3'));
    texts.push_back(std::string(1, '\0') + "5");
    const std::string alphabet = "0123456789++--..eeEExX \t\nab0099";
    std::mt19937 random(20240611);
    std::uniform_int_distribution<size_t> length(0, 14), pick(0, alphabet.size() - 1);
    for (int i = 0; i < 5000; ++i) {
        texts.emplace_back(length(random), ' ');
        for (char& c : texts.back())
            c = alphabet[pick(random)];
    }
    for (const std::string& text : texts) {
        ASSERT_EQ(str::toNumDef<int>(text, -99), streamReference<int>(text, -99)) << text;
        ASSERT_TRUE(same(str::toNumDef<double>(text, -9.5), streamReference<double>(text, -9.5)))
            << text;
    }
}

TEST(IniGetline, GrowsItsBufferAndOwnsOnlyWhatItAllocated) {
    const auto read = [](const std::string& bytes, size_t initial) {
        return testsupport::lineReaderTrace<size_t>(&IniFile::getline, bytes, initial);
    };
    EXPECT_EQ(read("", 0), "-1/0 freed");
    EXPECT_EQ(read("short\n" + std::string(300, 'x') + "\nlast", 0),
              "6/120 301/480 4/480 -1/480 kept");
    EXPECT_EQ(read(std::string(118, 'a') + "\n", 0), "119/120 -1/120 kept");
    EXPECT_EQ(read(std::string(119, 'a') + "\n", 0), "120/240 -1/240 kept");
    EXPECT_EQ(read(std::string(119, 'a'), 0), "119/240 -1/240 kept");
    EXPECT_EQ(read(std::string("a\0b\n", 4), 0), "4/120 -1/120 kept");
    EXPECT_EQ(read("abc\n", 60), "4/120 -1/120 kept");
    EXPECT_EQ(read("abc\n" + std::string(70, 'b') + "\n", 61), "4/61 71/122 -1/122 kept");
    size_t size = 0;
    errno = 0;
    EXPECT_EQ(IniFile::getline(stdin, nullptr, &size), -1);
    EXPECT_EQ(errno, EINVAL);
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
    {"EntriesBeforeFirstHeader", "Mode=fast\n[S]\nk=v\n", 1, "!: Mode=fast\nS: k=v\n"},
    {"CrLfAndBlanksTrimmed", " \r \n  [S]  \r\n k = v \r\n", 1, "S: k = v\n"},
    {"LastLineWithoutLineFeed", "[S]\nk=v", 1, "S: k=v\n"},
    {"ByteOrderMarkMakesNoHeader", "\xEF\xBB\xBF[S]\nk=1\n", 0, "!: k=1\n!: \xEF\xBB\xBF[S]=\n"},
    {"EmptyBracketsNameEmptySection", "[]\nk=v\n", 1, ": k=v\n"},
    {"HeaderWithoutClosingBracket", "[Other\nk=7\n", 1, "Othe: k=7\n"},
    {"ZeroByteCutsTheLine", std::string("k=v\0tail\n", 9), 0, "!: k=v\n"},
    {"FurtherSeparatorsInValue", "Path=a=b\n", 0, "!: Path=a=b\n"},
    {"RepeatedKeyReplaces", "[S]\nk=1\n[T]\n[S]\nk=2\n", 3, "S: k=2\n"},
    {"CompositeKeysCollide", "[a|b]\nc=1\n[a]\nb|c=2\n", 2, "a: b|c=2\n"},
    {"KeysInByteOrder", "b\nA B\n\xC3\xA9\nA\n", 0, "!: A=\n!: A B=\n!: b=\n!: \xC3\xA9=\n"},
    {"SectionsInCompositeKeyOrder", "[A]\nk\n[A B]\nk\n", 2, "A B: k=\nA: k=\n"},
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
TEST(IniFile, SavesSectionsInStoreOrderWithTheObjectsSeparator) {
    const testsupport::TempDir dir;
    const std::string path = dir.file("out.ini");
    IniFile ini(path.c_str(), ":=");
    ini.set("!", "Mode", "fast");
    ini.set("S", "k", "");
    ASSERT_EQ(ini.save(nullptr), IniFile::kOk);
    EXPECT_EQ(testsupport::readFile(path), "Mode:=fast\r\n\n[S]\r\nk:=\r\n");
    ini.set(" x", "k", "v");
    ASSERT_EQ(ini.save(nullptr), IniFile::kOk);
    EXPECT_EQ(testsupport::readFile(path),
              "[ x]\r\nk:=v\r\n\n[!]\r\nMode:=fast\r\n\n[S]\r\nk:=\r\n");
    testsupport::writeFile(path, "a:\nb=\nc:=v\nd=:w\n");
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(printed(ini), "!: a=\n!: b=\n!: c=v\n!: d=w\n") << "print always writes '='";
}

TEST(IniFile, OpenFailuresNameThePathTried) {
    const testsupport::TempDir dir;
    const std::string own = dir.file("own"), other = dir.file("other"), missing = dir.file("none");
    testsupport::writeFile(own, "[S]\nk=v\n");
    IniFile ini(own.c_str(), "=");
    EXPECT_EQ(ini.load(missing.c_str()), IniFile::kCannotOpen);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing);
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing) << "success leaves the message";
    EXPECT_EQ(ini.save(dir.path().c_str()), IniFile::kCannotOpen);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + dir.path());
    ASSERT_EQ(ini.save(other.c_str()), IniFile::kOk);
    ASSERT_EQ(ini.load(missing.c_str()), IniFile::kCannotOpen);
    EXPECT_EQ(printed(ini) + std::to_string(ini.getSectionCount()), "0") << "the store is emptied";
    ASSERT_EQ(ini.save(nullptr), IniFile::kOk);
    EXPECT_EQ(testsupport::readFile(own) + testsupport::readFile(other), "[S]\r\nk=v\r\n");
}

// Keys with their indexes in listing order, as "key#index ".
std::string listed(const IniFile& ini, const char* section) {
    std::string text;
    for (const IniItem& item : ini.getSectionItems(section))
        text += item.key + "#" + std::to_string(item.index) + " ";
    return text;
}

TEST(IniFile, EditsKeepIndexesAndResetTheSectionCount) {
    const testsupport::TempDir dir;
    testsupport::writeFile(dir.file("e.ini"), "[S]\nb=0\na=1\nb=2\n[S]\nc=3\n[T]\nd=4\n");
    IniFile ini(dir.file("e.ini").c_str(), "=");
    ASSERT_EQ(ini.load(nullptr), IniFile::kOk);
    EXPECT_EQ(listed(ini, "S"), "a#1 b#2 c#3 ");
    EXPECT_EQ(ini.getSectionCount(), 3);
    ini.set("S", "a", "x");
    ini.set("S", "e", 5);
    EXPECT_EQ(listed(ini, "S"), "a#1 b#2 c#3 e#4 ") << "a new entry is numbered by the count held";
    EXPECT_EQ(ini.getSectionCount(), 2);
    ini.remove("T", "d");
    EXPECT_EQ(ini.getSectionCount(), 1);
    ini.set("", "0", "v");
    ini.set("~", "1", "v");
    EXPECT_EQ(ini.getSectionCount(), 3);
    ini.removeSection("S");
    EXPECT_EQ(ini.getSectionCount(), 1) << "a leading empty-named run is not counted";
    ini.set("A", "2", "v");
    EXPECT_EQ(ini.getSectionCount(), 3);
}

TEST(IniFile, LooksUpWithDefaultsAndWritesNumbersAsTheStreamDoes) {
    IniFile ini("unused.ini", "=");
    EXPECT_EQ(ini.get("S", "k", "def") + std::to_string(ini.getInt("S", "k", 5)), "def5");
    EXPECT_EQ(ini.getDouble("S", "k", 2.5), 2.5);
    std::string bools;
    for (const char* value : {"true", "1", "TRUE", "0", " 1", ""}) {
        ini.set("S", "b", value);
        bools += std::to_string(ini.getBool("S", "b", true)) +
                 std::to_string(ini.getBool("S", "b", false)) + " ";
    }
    EXPECT_EQ(bools, "11 11 00 00 00 10 ") << "only true and 1 are true; empty is the default";
    EXPECT_FALSE(ini.itemExists("S", "none") || ini.getBool("S", "none", false));
    ini.set("S", "k", " 123abc");
    EXPECT_EQ(ini.getInt("S", "k", 5), 123);
    ini.set("S", "k", -7);
    EXPECT_EQ(ini.get("S", "k", ""), "-7");
    std::string numbers;
    for (double value : {0.5, 2.0, 3.14159265, 100000.0, 1e6, 0.00001}) {
        ini.set("S", "d", value);
        numbers += ini.get("S", "d", "") + " ";
    }
    EXPECT_EQ(numbers, "0.5 2 3.14159 100000 1e+06 1e-05 ");
}

}  // namespace
