// Exact bytes of the decimal and hexadecimal matrix writers, and their failure codes.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "tests/fileops/temp_dir.h"

namespace {

using fileops_test::readWhole;
using fileops_test::TempDirTest;
using fileops_test::writeWhole;

// Raw element storage: vector<unsigned char> memory comes from operator new, so it is aligned
// for every element type including double.
template <typename T>
std::vector<unsigned char> bytesOf(std::initializer_list<T> values) {
    std::vector<unsigned char> bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.begin(), bytes.size());
    return bytes;
}

struct WriteCase {
    const char* name;
    _DataType type;
    std::vector<unsigned char> data;
    unsigned long count;
    unsigned long width;
    const char* expected;
};

std::string caseName(const ::testing::TestParamInfo<WriteCase>& info) {
    return info.param.name;
}

class DecimalWrite : public TempDirTest, public ::testing::WithParamInterface<WriteCase> {};

TEST_P(DecimalWrite, WritesExactText) {
    const WriteCase& row = GetParam();
    const std::string file = dir.file("m.txt");
    std::vector<unsigned char> data = row.data;
    ASSERT_EQ(0,
              writeAsciiMatrix(file.c_str(), row.type, data.data(), row.count, row.width, false));
    EXPECT_EQ(row.expected, readWhole(file));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DecimalWrite,
    ::testing::Values(
        WriteCase{"UcharWidth3", TYPE_UCHAR, bytesOf<unsigned char>({1, 2, 3, 4, 5, 6}), 6, 3,
                  "1 2 3\n4 5 6\n"},
        WriteCase{"UcharWidth4EndsWithSpace", TYPE_UCHAR,
                  bytesOf<unsigned char>({1, 2, 3, 4, 5, 6}), 6, 4, "1 2 3 4\n5 6 "},
        WriteCase{"WidthAboveCount", TYPE_UCHAR, bytesOf<unsigned char>({7, 8}), 2, 5, "7 8 "},
        WriteCase{"CountBelowData", TYPE_UCHAR, bytesOf<unsigned char>({1, 2, 3}), 2, 1, "1\n2\n"},
        WriteCase{"UcharExtremes", TYPE_UCHAR, bytesOf<unsigned char>({0, 255}), 2, 2, "0 255\n"},
        WriteCase{"ShortSigned", TYPE_SHORT, bytesOf<short>({-1, 32767, -32768}), 3, 3,
                  "-1 32767 -32768\n"},
        WriteCase{"UshortHigh", TYPE_USHORT, bytesOf<unsigned short>({65535, 0}), 2, 1,
                  "65535\n0\n"},
        WriteCase{"IntExtremes", TYPE_INT, bytesOf<int>({INT_MIN, -5, INT_MAX}), 3, 2,
                  "-2147483648 -5\n2147483647 "},
        WriteCase{"UintHigh", TYPE_UINT, bytesOf<unsigned>({4294967295u}), 1, 1, "4294967295\n"},
        WriteCase{"DoubleQuarter", TYPE_DOUBLE, bytesOf<double>({0.25}), 1, 1, "0.250000\n"},
        WriteCase{"DoubleSixDigits", TYPE_DOUBLE, bytesOf<double>({1.5, -2.0, 1e-7}), 3, 3,
                  "1.500000 -2.000000 0.000000\n"},
        WriteCase{"CountZeroWidthZero", TYPE_INT, bytesOf<int>({1}), 0, 0, ""}),
    caseName);

class HexWrite : public TempDirTest, public ::testing::WithParamInterface<WriteCase> {};

TEST_P(HexWrite, WritesExactText) {
    const WriteCase& row = GetParam();
    const std::string file = dir.file("m.hex");
    std::vector<unsigned char> data = row.data;
    ASSERT_EQ(
        0, writeAsciiMatrixHex(file.c_str(), row.type, data.data(), row.count, row.width, false));
    EXPECT_EQ(row.expected, readWhole(file));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, HexWrite,
    ::testing::Values(
        WriteCase{"UcharTwoDigits", TYPE_UCHAR, bytesOf<unsigned char>({10, 255}), 2, 2, "0A FF\n"},
        WriteCase{"ShortNegativeWidens", TYPE_SHORT, bytesOf<short>({255, -1}), 2, 2,
                  "00FF FFFFFFFF\n"},
        WriteCase{"ShortMinusTwo", TYPE_SHORT, bytesOf<short>({-2}), 1, 1, "FFFFFFFE\n"},
        WriteCase{"UshortFourDigits", TYPE_USHORT, bytesOf<unsigned short>({65535, 1}), 2, 1,
                  "FFFF\n0001\n"},
        WriteCase{"IntEightDigits", TYPE_INT, bytesOf<int>({-1, 26}), 2, 2, "FFFFFFFF 0000001A\n"},
        WriteCase{"UintUpperCase", TYPE_UINT, bytesOf<unsigned>({0xDEADBEEFu, 0xABCu}), 2, 3,
                  "DEADBEEF 00000ABC "}),
    caseName);

struct BadTypeCase {
    const char* name;
    int type;
    bool hex;
};

class UnsupportedType : public TempDirTest, public ::testing::WithParamInterface<BadTypeCase> {};

// The file is opened before the type check, so it exists afterwards but holds nothing new.
TEST_P(UnsupportedType, ReturnsMinus4AndWritesNothing) {
    const BadTypeCase& row = GetParam();
    const std::string file = dir.file("bad.txt");
    writeWhole(file, "keep\n");
    double data[2] = {1.0, 2.0};
    const auto type = static_cast<_DataType>(row.type);
    const int appended = row.hex ? writeAsciiMatrixHex(file.c_str(), type, data, 2, 1, true)
                                 : writeAsciiMatrix(file.c_str(), type, data, 2, 1, true);
    EXPECT_EQ(-4, appended);
    EXPECT_EQ("keep\n", readWhole(file));

    const int replaced = row.hex ? writeAsciiMatrixHex(file.c_str(), type, data, 2, 1, false)
                                 : writeAsciiMatrix(file.c_str(), type, data, 2, 1, false);
    EXPECT_EQ(-4, replaced);
    EXPECT_EQ("", readWhole(file));
}

INSTANTIATE_TEST_SUITE_P(
    Types, UnsupportedType,
    ::testing::Values(BadTypeCase{"Decimal0", 0, false}, BadTypeCase{"Decimal6", 6, false},
                      BadTypeCase{"Decimal7", 7, false}, BadTypeCase{"Decimal8", 8, false},
                      BadTypeCase{"Decimal10", 10, false},
                      BadTypeCase{"DecimalNegative", -1, false}, BadTypeCase{"Hex0", 0, true},
                      BadTypeCase{"Hex6", 6, true}, BadTypeCase{"Hex7", 7, true},
                      BadTypeCase{"Hex8", 8, true}, BadTypeCase{"Hex9Double", 9, true}),
    [](const ::testing::TestParamInfo<BadTypeCase>& info) { return std::string(info.param.name); });

class MatrixWrite : public TempDirTest {};

TEST_F(MatrixWrite, ZeroWidthWithValuesReturnsMinus4AndLeavesFileEmpty) {
    const std::string file = dir.file("w0.txt");
    int data[3] = {1, 2, 3};
    EXPECT_EQ(-4, writeAsciiMatrix(file.c_str(), TYPE_INT, data, 3, 0, false));
    EXPECT_EQ(-4, writeAsciiMatrixHex(file.c_str(), TYPE_INT, data, 3, 0, true));
    EXPECT_EQ("", readWhole(file));
}

TEST_F(MatrixWrite, AppendTwiceKeepsBothBlocksInOrder) {
    const std::string file = dir.file("twice.txt");
    int first[2] = {1, 2};
    int second[3] = {-3, 4, 5};
    ASSERT_EQ(0, writeAsciiMatrix(file.c_str(), TYPE_INT, first, 2, 2, true));
    ASSERT_EQ(0, writeAsciiMatrixHex(file.c_str(), TYPE_INT, second, 3, 3, true));
    EXPECT_EQ("1 2\nFFFFFFFD 00000004 00000005\n", readWhole(file));
}

TEST_F(MatrixWrite, WithoutAppendReplacesContent) {
    const std::string file = dir.file("replace.txt");
    writeWhole(file, "old content that is longer\n");
    unsigned data[1] = {9};
    ASSERT_EQ(0, writeAsciiMatrix(file.c_str(), TYPE_UINT, data, 1, 1, false));
    EXPECT_EQ("9\n", readWhole(file));
}

TEST_F(MatrixWrite, UnopenablePathsReturnMinus1) {
    int data[1] = {1};
    const std::string missingDir = dir.file("no/such/dir/m.txt");
    EXPECT_EQ(-1, writeAsciiMatrix(missingDir.c_str(), TYPE_INT, data, 1, 1, false));
    EXPECT_EQ(-1, writeAsciiMatrixHex(missingDir.c_str(), TYPE_INT, data, 1, 1, true));
    // A directory cannot be opened for writing, whoever runs the test.
    EXPECT_EQ(-1, writeAsciiMatrix(dir.path().c_str(), TYPE_INT, data, 1, 1, true));
    // Opening comes before the type check.
    EXPECT_EQ(-1,
              writeAsciiMatrix(missingDir.c_str(), static_cast<_DataType>(7), data, 1, 1, false));
}

// /dev/full accepts the open but fails every flush; enough values force a flush mid-loop.
TEST_F(MatrixWrite, FailedPrintReturnsMinus3) {
    FILE* probe = std::fopen("/dev/full", "w");
    if (probe == nullptr) GTEST_SKIP() << "/dev/full is not available";
    std::fclose(probe);
    std::vector<int> data(100000, 123456);
    EXPECT_EQ(-3, writeAsciiMatrix("/dev/full", TYPE_INT, data.data(), data.size(), 10, false));
    EXPECT_EQ(-3, writeAsciiMatrixHex("/dev/full", TYPE_INT, data.data(), data.size(), 10, true));
}

}  // namespace
