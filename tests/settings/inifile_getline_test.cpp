#include "settings/inifile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/settings/temp_dir.h"

namespace {

using settings_test::TempDir;
using settings_test::writeFile;

// One file of the given bytes, read with getline into a buffer that starts as the caller's.
class Reader {
public:
    explicit Reader(const std::string& bytes, size_t initialCapacity = 0) {
        const std::string path = dir.file("lines.txt");
        writeFile(path, bytes);
        file = std::fopen(path.c_str(), "r");
        EXPECT_NE(file, nullptr);
        if (initialCapacity > 0) buffer = static_cast<char*>(std::malloc(initialCapacity));
        capacity = initialCapacity;
    }
    ~Reader() {
        if (file != nullptr) std::fclose(file);
        std::free(buffer);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    int next() { return IniFile::getline(file, &buffer, &capacity); }
    std::string text() const { return buffer; }

    TempDir dir;
    FILE* file = nullptr;
    char* buffer = nullptr;
    size_t capacity = 0;
};

TEST(IniGetline, GrowsThroughALongLineAndLeavesTheBufferAtEnd) {
    const std::string longLine(300, 'x');
    Reader in("short\n" + longLine + "\nlast");

    EXPECT_EQ(in.next(), 6);
    EXPECT_EQ(in.capacity, 120u);
    EXPECT_EQ(in.text(), "short\n");

    EXPECT_EQ(in.next(), 301);
    EXPECT_EQ(in.capacity, 480u);
    EXPECT_EQ(in.text(), longLine + "\n");

    EXPECT_EQ(in.next(), 4);
    EXPECT_EQ(in.text(), "last");

    char* const kept = in.buffer;
    EXPECT_EQ(in.next(), -1);
    EXPECT_EQ(in.buffer, kept) << "a buffer handed back by an earlier call is the caller's";
    EXPECT_EQ(in.capacity, 480u);
}

TEST(IniGetline, LengthAndCapacityForOneLine) {
    struct Row {
        const char* name;
        std::string bytes;
        int length;
        size_t capacity;
    };
    const std::vector<Row> rows = {
        {"fits the first buffer", std::string(118, 'a') + "\n", 119, 120},
        {"line feed spills over", std::string(119, 'a') + "\n", 120, 240},
        {"fits the doubled buffer", std::string(238, 'a') + "\n", 239, 240},
        {"spills over twice", std::string(239, 'a') + "\n", 240, 480},
        {"last line exactly filling the buffer", std::string(119, 'a'), 119, 240},
        {"last line without line feed", "abc", 3, 120},
        {"zero byte inside", std::string("a\0b\n", 4), 4, 120},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Reader in(row.bytes);
        EXPECT_EQ(in.next(), row.length);
        EXPECT_EQ(in.capacity, row.capacity);
        EXPECT_EQ(in.next(), -1);
    }
}

TEST(IniGetline, BufferItAllocatedIsFreedWhenNothingIsRead) {
    Reader in("");
    EXPECT_EQ(in.next(), -1);
    EXPECT_EQ(in.buffer, nullptr);
    EXPECT_EQ(in.capacity, 0u);
}

TEST(IniGetline, SmallCallerBufferIsReallocatedTo120) {
    Reader in("abc\n", 60);
    EXPECT_EQ(in.next(), 4);
    EXPECT_EQ(in.capacity, 120u);
    EXPECT_EQ(in.next(), -1);
    EXPECT_NE(in.buffer, nullptr) << "end of file must not free the caller's buffer";
}

TEST(IniGetline, LargerCallerBufferIsUsedAsGivenThenDoubled) {
    Reader in("abc\n" + std::string(70, 'b') + "\n", 61);
    EXPECT_EQ(in.next(), 4);
    EXPECT_EQ(in.capacity, 61u);
    EXPECT_EQ(in.next(), 71);
    EXPECT_EQ(in.capacity, 122u);
}

TEST(IniGetline, NullArgumentsFailWithEinval) {
    Reader in("abc\n");
    errno = 0;
    EXPECT_EQ(IniFile::getline(in.file, nullptr, &in.capacity), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(IniFile::getline(in.file, &in.buffer, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
