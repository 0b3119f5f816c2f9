// The file utilities, over real files in a scratch directory.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fileops/fileops.h"
#include "tests/support/files.h"
#include "tests/support/line_reader.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace fileops;
using namespace testsupport;

// `text` read as `count` values of `type`, then written `width` per line in decimal and hex.
struct MatrixRow {
    const char* name;
    _DataType type;
    unsigned long count;
    unsigned long width;
    const char* text;
    const char* decimal;
    const char* hex;
};

const MatrixRow kMatrixRows[] = {
    {"UcharRows", TYPE_UCHAR, 4, 2, "1\t2\n\n 3 255 9", "1 2\n3 255\n", "01 02\n03 FF\n"},
    {"LastRowEndsWithSpace", TYPE_UCHAR, 3, 2, "1 2 3", "1 2\n3 ", "01 02\n03 "},
    {"ShortWidensInHex", TYPE_SHORT, 2, 2, "32767 40000", "32767 -25536\n", "7FFF FFFF9C40\n"},
    {"UshortKeepsLow16Bits", TYPE_USHORT, 2, 1, "65535 70000", "65535\n4464\n", "FFFF\n1170\n"},
    {"IntNegative", TYPE_INT, 2, 2, "-2147483648 -1", "-2147483648 -1\n", "80000000 FFFFFFFF\n"},
    {"UintHigh", TYPE_UINT, 2, 2, "4294967295 2748", "4294967295 2748\n", "FFFFFFFF 00000ABC\n"},
    {"DoubleSixDecimals", TYPE_DOUBLE, 2, 2, "0.25 -1.5e3", "0.250000 -1500.000000\n", nullptr},
    {"NothingWithWidthZero", TYPE_INT, 0, 0, "", "", ""},
};

class Matrix : public ::testing::TestWithParam<MatrixRow> {};

TEST_P(Matrix, ReadsWritesAndReadsBack) {
    const MatrixRow& row = GetParam();
    const TempDir dir;
    const std::string in = dir.file("in"), out = dir.file("out");
    writeFile(in, row.text);
    double values[8] = {};  // room for eight elements of any type, aligned for all
    ASSERT_EQ(readAsciiMatrix(in.c_str(), row.type, row.count, values), kOk);
    EXPECT_EQ(writeAsciiMatrix(out.c_str(), row.type, values, row.count, row.width, false), kOk);
    EXPECT_EQ(readFile(out), row.decimal);
    EXPECT_EQ(writeAsciiMatrixHex(out.c_str(), row.type, values, row.count, row.width, false),
              row.hex != nullptr ? kOk : kBadType);
    EXPECT_EQ(readFile(out), row.hex != nullptr ? row.hex : "");
}

INSTANTIATE_TEST_SUITE_P(Rows, Matrix, ::testing::ValuesIn(kMatrixRows), RowName());

// A writer opens (and without append empties) the file before it checks the type and the width.
TEST(Matrix, FailuresKeepWhatWasReadOrWritten) {
    const TempDir dir;
    const std::string file = dir.file("m");
    int values[4] = {-3, 4, 5, -7};
    ASSERT_EQ(writeAsciiMatrix(file.c_str(), TYPE_INT, values, 2, 2, true), kOk);
    ASSERT_EQ(writeAsciiMatrixHex(file.c_str(), TYPE_INT, values, 3, 3, true), kOk);
    int read[4] = {9, 9, 9, 9};
    ASSERT_EQ(readAsciiMatrix(file.c_str(), TYPE_INT, 1, read), kOk);
    EXPECT_EQ(read[1], 9) << "a value past the count is not stored";
    EXPECT_EQ(readAsciiMatrix(file.c_str(), TYPE_INT, 4, read), kShortRead) << "hex is no number";
    EXPECT_EQ(std::vector<int>(read, read + 4), (std::vector<int>{-3, 4, 9, 9}));
    EXPECT_EQ(readAsciiMatrix(file.c_str(), _DataType(8), 1, read + 3), kBadType);
    EXPECT_EQ(writeAsciiMatrix(file.c_str(), _DataType(0), values, 2, 1, true), kBadType);
    EXPECT_EQ(writeAsciiMatrixHex(file.c_str(), TYPE_INT, values, 3, 0, true), kBadType);
    EXPECT_EQ(writeAsciiMatrixHex(file.c_str(), _DataType(7), values, 2, 1, true), kBadType);
    EXPECT_EQ(readFile(file) + std::to_string(read[3]), "-3 4\nFFFFFFFD 00000004 00000005\n9");
    EXPECT_EQ(writeAsciiMatrix(file.c_str(), TYPE_INT, values, 3, 0, false), kBadType);
    EXPECT_EQ(readFile(file), "");
    EXPECT_EQ(readAsciiMatrix(dir.file("none").c_str(), TYPE_INT, 1, values), kOpenFailed);
    EXPECT_EQ(writeAsciiMatrixHex(dir.path().c_str(), TYPE_DOUBLE, read, 1, 0, true), kOpenFailed);
}

TEST(Binary, WritesAndReadsBlocks) {
    const TempDir dir;
    const std::string file = dir.file("b");
    std::vector<unsigned char> bytes(1 << 20), back(260, 0x55);
    std::iota(bytes.rbegin(), bytes.rend(), 0);
    ASSERT_EQ(writeBinary(file.c_str(), bytes.data(), 256, false), kOk);
    ASSERT_EQ(writeBinary(file.c_str(), bytes.data(), 2, true), kOk);
    EXPECT_EQ(readBinary(file.c_str(), back.data(), 260), kShortRead);
    EXPECT_EQ(std::string(back.begin(), back.end()),
              std::string(bytes.begin(), bytes.begin() + 256) + "\xFF\xFE\x55\x55");
    ASSERT_EQ(writeBinary(file.c_str(), bytes.data(), 1, false), kOk);
    EXPECT_EQ(readFile(file), "\xFF");
    EXPECT_EQ(readBinary(dir.file("none").c_str(), back.data(), 1), kOpenFailed);
    EXPECT_EQ(writeBinary(dir.path().c_str(), bytes.data(), 1, true), kOpenFailed);
    // /dev/full opens but refuses every flush: a block larger than the stream's buffer, and enough
    // values to flush in the middle of the print loop, must both report the failed write.
    const char* full = "/dev/full";
    if (!fileExists(full)) return;
    EXPECT_EQ(writeBinary(full, bytes.data(), bytes.size(), false), kWriteFailed);
    EXPECT_EQ(writeAsciiMatrix(full, TYPE_UCHAR, bytes.data(), bytes.size(), 10, false),
              kWriteFailed);
}

TEST(Getline, GrowsItsBufferAndOwnsOnlyWhatItAllocated) {
    EXPECT_EQ(lineReaderFailures<unsigned long>(&getline), "");
    char* line = nullptr;
    unsigned long size = 0;
    errno = 0;
    EXPECT_EQ(getline(nullptr, &line, &size), -1);
    EXPECT_EQ(errno, EINVAL);
}

// Tries every split at every star: plainly right, exponential, fine for short texts.
bool referenceMatch(const char* name, const char* mask) {
    if (*mask == '*')
        return referenceMatch(name, mask + 1) || (*name && referenceMatch(name + 1, mask));
    if (*mask == '\0' || *name == '\0') return *mask == *name;
    const bool one = *mask == '?' ? *name != '.' : *mask == *name;
    return one && referenceMatch(name + 1, mask + 1);
}

TEST(MatchMask, AgreesWithTheReferenceAndNeverBacktracksFar) {
    EXPECT_FALSE(matchMask(nullptr, "*") || matchMask("a", nullptr));
    const std::string alphabet = "aAb.?**";
    std::mt19937 random(20240611);
    const auto text = [&] {
        std::string made(random() % 9, ' ');
        for (char& c : made)
            c = alphabet[random() % alphabet.size()];
        return made;
    };
    for (int i = 0; i < 50000; ++i) {
        const std::string name = text(), mask = text();
        ASSERT_EQ(matchMask(name.c_str(), mask.c_str()), referenceMatch(name.c_str(), mask.c_str()))
            << "name '" << name << "' mask '" << mask << "'";
    }
    // With a restart point per star this would take exponential time; the test's time-out ends it.
    const std::string name(20000, 'a'), mask = "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a";
    EXPECT_FALSE(matchMask(name.c_str(), (mask + "*b").c_str()));
    EXPECT_TRUE(matchMask((name + "b").c_str(), (mask + "*b").c_str()));
}

// The directory holds a.txt, b.dat, .hidden, the directory sub and a symbolic link to sub, which
// the directory read reports as a link, not a directory.
TEST(ListFilesInDir, ListsMatchingEntriesAfterThoseGiven) {
    const TempDir dir;
    for (const char* name : {"a.txt", "b.dat", ".hidden"})
        writeFile(dir.file(name), "x");
    std::filesystem::create_directory(dir.file("sub"));
    ASSERT_EQ(symlink("sub", dir.file("link").c_str()), 0);
    // "result given names..." with the names sorted: the system's order is no order.
    const auto list = [](const char* path, const char* mask, bool filesOnly, bool fullPath) {
        std::vector<std::string> names = {"given"};
        std::string text = std::to_string(listFilesInDir(path, mask, filesOnly, fullPath, names));
        std::sort(names.begin() + 1, names.end());
        for (const std::string& name : names)
            text += " " + name;
        return text;
    };
    EXPECT_EQ(list(dir.path().c_str(), "*", false, false), "0 given .hidden a.txt b.dat link sub");
    EXPECT_EQ(list(dir.path().c_str(), "*", true, false), "0 given .hidden a.txt b.dat link");
    EXPECT_EQ(list((dir.path() + "/").c_str(), "*.txt", true, true),
              "0 given " + dir.path() + "//a.txt");
    const std::string fail = std::to_string(kDirOpenFailed) + " given";
    EXPECT_EQ(list(dir.file("a.txt").c_str(), "*", 0, 0) + list(nullptr, "*", 0, 0), fail + fail);
}

}  // namespace
