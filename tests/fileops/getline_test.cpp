// The growing line reader: lengths, buffer growth and who owns the buffer when.
#include <gtest/gtest.h>

#include <sys/types.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "fileops/fileops.h"
#include "tests/fileops/temp_dir.h"

namespace {

using fileops_test::TempDirTest;
using fileops_test::writeWhole;

// Our reader and the POSIX one must coexist: the calls below pick ours by parameter order.
static_assert(std::is_same_v<decltype(getline(std::declval<FILE*>(), std::declval<char**>(),
                                              std::declval<unsigned long*>())),
                             int>);
static_assert(std::is_same_v<decltype(getline(std::declval<FILE*>(), std::declval<char**>(),
                                              std::declval<size_t*>())),
                             int>);
static_assert(std::is_same_v<decltype(::getline(std::declval<char**>(), std::declval<size_t*>(),
                                                std::declval<FILE*>())),
                             ssize_t>);

// Opens a file holding `content` and closes it when the test ends.
class GetLine : public TempDirTest {
protected:
    FILE* open(const std::string& content) {
        const std::string file = dir.file("lines.txt");
        writeWhole(file, content);
        stream_ = std::fopen(file.c_str(), "r");
        return stream_;
    }
    void TearDown() override {
        if (stream_ != nullptr) std::fclose(stream_);
    }

private:
    FILE* stream_ = nullptr;
};

TEST_F(GetLine, NullBufferGrowsTo240ForA200CharacterLine) {
    FILE* stream = open(std::string(200, 'x') + "\nnext\n");
    ASSERT_NE(nullptr, stream);
    char* line = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(201, getline(stream, &line, &size));
    EXPECT_EQ(240u, size);
    EXPECT_EQ(std::string(200, 'x') + "\n", std::string(line));
    EXPECT_EQ(5, getline(stream, &line, &size));
    EXPECT_STREQ("next\n", line);
    std::free(line);
}

struct LengthCase {
    const char* name;
    std::string content;
    int expected;
    unsigned long expectedSize;
};

class LineLength : public GetLine, public ::testing::WithParamInterface<LengthCase> {};

TEST_P(LineLength, ReturnsBytesReadAndTerminates) {
    const LengthCase& row = GetParam();
    FILE* stream = open(row.content);
    ASSERT_NE(nullptr, stream);
    char* line = nullptr;
    unsigned long size = 0;
    ASSERT_EQ(row.expected, getline(stream, &line, &size));
    EXPECT_EQ(row.expectedSize, size);
    EXPECT_EQ(0, std::memcmp(line, row.content.data(), row.expected));
    EXPECT_EQ('\0', line[row.expected]);
    std::free(line);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, LineLength,
    ::testing::Values(
        LengthCase{"EmptyLine", "\nrest", 1, 120},
        LengthCase{"LastLineWithoutLineFeed", "abc", 3, 120},
        LengthCase{"FitsFirstBuffer", std::string(118, 'a') + "\n", 119, 120},
        // 119 characters fill the first buffer exactly; the line feed needs the second.
        LengthCase{"LineFeedJustPastFirstBuffer", std::string(119, 'a') + "\n", 120, 240},
        LengthCase{"FullBufferThenEndOfFile", std::string(119, 'a'), 119, 240},
        LengthCase{"ThousandCharactersDoubleThreeTimes", std::string(1000, 'q') + "\nz", 1001,
                   1920},
        // The line feed is found past a zero byte inside the line.
        LengthCase{"ZeroByteInsideLine", std::string("a\0b\n", 4), 4, 120}),
    [](const ::testing::TestParamInfo<LengthCase>& info) { return std::string(info.param.name); });

TEST_F(GetLine, ReadsSuccessiveLinesThenFails) {
    FILE* stream = open("one\ntwo\n\nthree");
    ASSERT_NE(nullptr, stream);
    char* line = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(4, getline(stream, &line, &size));
    EXPECT_STREQ("one\n", line);
    EXPECT_EQ(4, getline(stream, &line, &size));
    EXPECT_STREQ("two\n", line);
    EXPECT_EQ(1, getline(stream, &line, &size));
    EXPECT_STREQ("\n", line);
    EXPECT_EQ(5, getline(stream, &line, &size));
    EXPECT_STREQ("three", line);
    // The buffer came from an earlier call, so it now belongs to the caller and survives.
    char* const kept = line;
    EXPECT_EQ(-1, getline(stream, &line, &size));
    EXPECT_EQ(kept, line);
    EXPECT_EQ(120u, size);
    std::free(line);
}

TEST_F(GetLine, EndOfFileFreesBufferAllocatedByThatCall) {
    FILE* stream = open("");
    ASSERT_NE(nullptr, stream);
    char* line = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(-1, getline(stream, &line, &size));
    EXPECT_EQ(nullptr, line);
    EXPECT_EQ(0u, size);
}

// A zero size means "allocate your own": the old pointer is dropped, not freed or used.
TEST_F(GetLine, ZeroSizeIgnoresCallersPointer) {
    FILE* stream = open("");
    ASSERT_NE(nullptr, stream);
    char* const callers = static_cast<char*>(std::malloc(16));
    char* line = callers;
    unsigned long size = 0;
    EXPECT_EQ(-1, getline(stream, &line, &size));
    EXPECT_EQ(nullptr, line);
    EXPECT_EQ(0u, size);
    std::free(callers);
}

struct CallerBufferCase {
    const char* name;
    unsigned long size;
    unsigned long sizeAfter;
};

class CallerBuffer : public GetLine, public ::testing::WithParamInterface<CallerBufferCase> {};

TEST_P(CallerBuffer, SmallOnesGrowTo120LargerOnesStay) {
    const CallerBufferCase& row = GetParam();
    FILE* stream = open("hi\n");
    ASSERT_NE(nullptr, stream);
    unsigned long size = row.size;
    char* const callers = static_cast<char*>(std::malloc(size));
    ASSERT_NE(nullptr, callers);
    char* line = callers;
    EXPECT_EQ(3, getline(stream, &line, &size));
    EXPECT_STREQ("hi\n", line);
    EXPECT_EQ(row.sizeAfter, size);
    // A buffer above 60 bytes is used in place, not reallocated.
    if (row.size > 60) {
        EXPECT_EQ(callers, line);
    }
    // At end of file a caller's buffer stays allocated with its size.
    EXPECT_EQ(-1, getline(stream, &line, &size));
    ASSERT_NE(nullptr, line);
    EXPECT_EQ(row.sizeAfter, size);
    std::free(line);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CallerBuffer,
                         ::testing::Values(CallerBufferCase{"One", 1, 120},
                                           CallerBufferCase{"Sixty", 60, 120},
                                           CallerBufferCase{"SixtyOne", 61, 61},
                                           CallerBufferCase{"Large", 500, 500}),
                         [](const ::testing::TestParamInfo<CallerBufferCase>& info) {
                             return std::string(info.param.name);
                         });

TEST_F(GetLine, NullArgumentsSetEinval) {
    FILE* stream = open("line\n");
    ASSERT_NE(nullptr, stream);
    char* line = nullptr;
    unsigned long size = 0;
    errno = 0;
    EXPECT_EQ(-1, getline(stream, nullptr, &size));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, getline(stream, &line, nullptr));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, getline(nullptr, &line, &size));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(nullptr, line);
    EXPECT_EQ(0u, size);
    // Nothing was consumed by the refused calls.
    EXPECT_EQ(5, getline(stream, &line, &size));
    std::free(line);
}

}  // namespace
