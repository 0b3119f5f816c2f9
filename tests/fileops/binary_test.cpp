// Raw block reading and writing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "tests/fileops/temp_dir.h"

namespace {

using fileops_test::readWhole;
using fileops_test::TempDirTest;
using fileops_test::writeWhole;

class Binary : public TempDirTest {};

TEST_F(Binary, WritesAndReadsEveryByteValue) {
    const std::string file = dir.file("all.bin");
    std::vector<unsigned char> bytes(256);
    for (int i = 0; i < 256; ++i)
        bytes[i] = static_cast<unsigned char>(255 - i);
    ASSERT_EQ(0, writeBinary(file.c_str(), bytes.data(), bytes.size(), false));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), readWhole(file));
    std::vector<unsigned char> back(256, 0x55);
    ASSERT_EQ(0, readBinary(file.c_str(), back.data(), back.size()));
    EXPECT_EQ(bytes, back);
}

TEST_F(Binary, ShortFileReturnsMinus2WithBytesStored) {
    const std::string file = dir.file("four.bin");
    writeWhole(file, std::string("\x01\x00\x02\xff", 4));
    std::vector<unsigned char> data(10, 0xAA);
    EXPECT_EQ(-2, readBinary(file.c_str(), data.data(), data.size()));
    const std::vector<unsigned char> expected = {1, 0, 2, 0xff, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(expected, data);
}

TEST_F(Binary, ReadsOnlyTheBytesAskedFor) {
    const std::string file = dir.file("long.bin");
    writeWhole(file, "abcdef");
    unsigned char data[4] = {0, 0, 0, 'z'};
    EXPECT_EQ(0, readBinary(file.c_str(), data, 3));
    EXPECT_EQ(std::string("abcz"), std::string(data, data + 4));
}

TEST_F(Binary, AppendAddsAfterExistingBytes) {
    const std::string file = dir.file("append.bin");
    unsigned char first[3] = {'a', 0, 'b'};
    unsigned char second[2] = {'c', 'd'};
    ASSERT_EQ(0, writeBinary(file.c_str(), first, 3, true));
    ASSERT_EQ(0, writeBinary(file.c_str(), second, 2, true));
    EXPECT_EQ(std::string("a\0bcd", 5), readWhole(file));
}

TEST_F(Binary, WithoutAppendReplaces) {
    const std::string file = dir.file("replace.bin");
    writeWhole(file, "previous content");
    unsigned char data[2] = {'o', 'k'};
    ASSERT_EQ(0, writeBinary(file.c_str(), data, 2, false));
    EXPECT_EQ("ok", readWhole(file));
}

TEST_F(Binary, UnopenableFilesReturnMinus1) {
    unsigned char data[1] = {0};
    EXPECT_EQ(-1, readBinary(dir.file("missing.bin").c_str(), data, 1));
    EXPECT_EQ(-1, writeBinary(dir.file("no/dir/x.bin").c_str(), data, 1, false));
    EXPECT_EQ(-1, writeBinary(dir.path().c_str(), data, 1, true));
}

// A block larger than the stream buffer is written through at once, so /dev/full refuses it.
TEST_F(Binary, RefusedWriteReturnsMinus3) {
    FILE* probe = std::fopen("/dev/full", "wb");
    if (probe == nullptr) GTEST_SKIP() << "/dev/full is not available";
    std::fclose(probe);
    std::vector<unsigned char> data(1 << 20, 0x11);
    EXPECT_EQ(-3, writeBinary("/dev/full", data.data(), data.size(), false));
}

}  // namespace
