// Decimal matrix reader: conversions, low-bit truncation, short files and round trips.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "tests/fileops/temp_dir.h"

namespace {

using fileops_test::TempDirTest;
using fileops_test::writeWhole;

struct ReadCase {
    const char* name;
    _DataType type;
    const char* text;
    double expected;  // every tested value is exact in a double
};

class ReadOne : public TempDirTest, public ::testing::WithParamInterface<ReadCase> {};

double storedValue(_DataType type, const void* data) {
    switch (type) {
        case TYPE_UCHAR:
            return *static_cast<const unsigned char*>(data);
        case TYPE_SHORT:
            return *static_cast<const short*>(data);
        case TYPE_USHORT:
            return *static_cast<const unsigned short*>(data);
        case TYPE_INT:
            return *static_cast<const int*>(data);
        case TYPE_UINT:
            return *static_cast<const unsigned*>(data);
        case TYPE_DOUBLE:
            return *static_cast<const double*>(data);
    }
    return -1e300;
}

TEST_P(ReadOne, StoresConvertedValue) {
    const ReadCase& row = GetParam();
    const std::string file = dir.file("one.txt");
    writeWhole(file, row.text);
    alignas(double) unsigned char data[sizeof(double)] = {};
    ASSERT_EQ(0, readAsciiMatrix(file.c_str(), row.type, 1, data));
    EXPECT_EQ(row.expected, storedValue(row.type, data));
}

INSTANTIATE_TEST_SUITE_P(
    Conversions, ReadOne,
    ::testing::Values(ReadCase{"Uchar300KeepsLow8Bits", TYPE_UCHAR, "300", 44},
                      ReadCase{"UcharMinus1KeepsLow8Bits", TYPE_UCHAR, "-1", 255},
                      ReadCase{"Ushort70000KeepsLow16Bits", TYPE_USHORT, "70000", 4464},
                      ReadCase{"ShortNegative", TYPE_SHORT, "-5", -5},
                      ReadCase{"Short40000WrapsNegative", TYPE_SHORT, "40000", -25536},
                      ReadCase{"IntNegative", TYPE_INT, "-2147483648", INT_MIN},
                      ReadCase{"UintHigh", TYPE_UINT, "4294967295", 4294967295.0},
                      ReadCase{"DoubleQuarter", TYPE_DOUBLE, "0.25", 0.25},
                      ReadCase{"DoubleExponent", TYPE_DOUBLE, "-1.5e3", -1500.0},
                      ReadCase{"LeadingWhitespace", TYPE_INT, " \t\n\n  42", 42}),
    [](const ::testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

class MatrixRead : public TempDirTest {};

TEST_F(MatrixRead, ShortFileKeepsValuesReadAndLeavesTheRestUntouched) {
    const std::string file = dir.file("short.txt");
    writeWhole(file, "1\n2\n");
    int data[4] = {-7, -7, -7, -7};
    EXPECT_EQ(-2, readAsciiMatrix(file.c_str(), TYPE_INT, 3, data));
    EXPECT_EQ(1, data[0]);
    EXPECT_EQ(2, data[1]);
    EXPECT_EQ(-7, data[2]);
    EXPECT_EQ(-7, data[3]);
}

TEST_F(MatrixRead, NonNumberStopsReading) {
    const std::string file = dir.file("junk.txt");
    writeWhole(file, "5 x 6");
    unsigned short data[3] = {9, 9, 9};
    EXPECT_EQ(-2, readAsciiMatrix(file.c_str(), TYPE_USHORT, 3, data));
    EXPECT_EQ(5, data[0]);
    EXPECT_EQ(9, data[1]);
    EXPECT_EQ(9, data[2]);
}

TEST_F(MatrixRead, LayoutIsIgnoredAndTrailingTextTooIsIgnored) {
    const std::string file = dir.file("layout.txt");
    writeWhole(file, "1\t2\n\n  3 4 5\nnot numbers");
    short data[4] = {};
    ASSERT_EQ(0, readAsciiMatrix(file.c_str(), TYPE_SHORT, 4, data));
    EXPECT_EQ(1, data[0]);
    EXPECT_EQ(2, data[1]);
    EXPECT_EQ(3, data[2]);
    EXPECT_EQ(4, data[3]);
}

TEST_F(MatrixRead, CountZeroSucceedsWithoutTouchingData) {
    const std::string file = dir.file("empty.txt");
    writeWhole(file, "");
    int data[1] = {77};
    EXPECT_EQ(0, readAsciiMatrix(file.c_str(), TYPE_INT, 0, data));
    EXPECT_EQ(77, data[0]);
}

TEST_F(MatrixRead, MissingFileReturnsMinus1EvenForUnsupportedType) {
    const std::string file = dir.file("missing.txt");
    int data[1] = {0};
    EXPECT_EQ(-1, readAsciiMatrix(file.c_str(), TYPE_INT, 1, data));
    EXPECT_EQ(-1, readAsciiMatrix(file.c_str(), static_cast<_DataType>(7), 1, data));
}

TEST_F(MatrixRead, UnsupportedTypesReturnMinus4AndStoreNothing) {
    const std::string file = dir.file("values.txt");
    writeWhole(file, "1 2 3\n");
    for (int type : {0, 6, 7, 8, 10}) {
        SCOPED_TRACE(type);
        int data[3] = {-1, -1, -1};
        EXPECT_EQ(-4, readAsciiMatrix(file.c_str(), static_cast<_DataType>(type), 3, data));
        EXPECT_EQ(-1, data[0]);
    }
}

template <typename T>
void expectRoundTrip(const std::string& file, _DataType type, std::vector<T> values) {
    SCOPED_TRACE(static_cast<int>(type));
    ASSERT_EQ(0, writeAsciiMatrix(file.c_str(), type, values.data(), values.size(), 3, false));
    std::vector<T> back(values.size());
    ASSERT_EQ(0, readAsciiMatrix(file.c_str(), type, back.size(), back.data()));
    EXPECT_EQ(values, back);
}

// Whatever the writer produces the reader must take back, at every type's extremes.
TEST_F(MatrixRead, ReadsBackWhatTheWriterWrote) {
    const std::string file = dir.file("round.txt");
    expectRoundTrip<unsigned char>(file, TYPE_UCHAR, {0, 1, 127, 128, 255});
    expectRoundTrip<short>(file, TYPE_SHORT, {SHRT_MIN, -1, 0, 1, SHRT_MAX});
    expectRoundTrip<unsigned short>(file, TYPE_USHORT, {0, 1, 32768, USHRT_MAX});
    expectRoundTrip<int>(file, TYPE_INT, {INT_MIN, -1, 0, 1, INT_MAX});
    expectRoundTrip<unsigned>(file, TYPE_UINT, {0u, 1u, 2147483648u, UINT_MAX});
    expectRoundTrip<double>(file, TYPE_DOUBLE, {-2.5, 0.0, 0.125, 123456.75, 1e9});
}

}  // namespace
