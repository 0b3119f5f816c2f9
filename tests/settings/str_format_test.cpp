#include "settings/str.h"

#include <cwchar>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(StrFormat, ReturnsTextsOfEveryLengthAroundTheFirstBuffer) {
    struct Row {
        const char* name;
        std::size_t length;
    };
    const Row rows[] = {
        {"empty", 0},
        {"one pass, longest", 511},
        {"second pass, shortest", 512},
        {"second pass, long", 5000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string text(row.length, 'a');
        EXPECT_EQ(str::format("%s", text.c_str()), text);
    }
}

TEST(StrFormat, BuildsTheCompleteOpenFailureMessageForALongPath) {
    const std::string path(1000, 'p');
    const std::string message = str::format("Cannot open file %s", path.c_str());
    EXPECT_EQ(message.size(), 1017u);
    EXPECT_EQ(message, "Cannot open file " + path);
}

TEST(StrFormat, FormatsEveryArgumentAgainOnTheSecondPass) {
    const std::string middle(600, 'm');
    EXPECT_EQ(str::format("%d<%s>%d", -1, middle.c_str(), 2), "-1<" + middle + ">2");
}

TEST(StrFormat, ZeroCharacterEndsTheText) {
    EXPECT_EQ(str::format("ab%cde", 0), "ab");
}

TEST(StrFormat, OutputErrorReturnsWhatFitsInsteadOfGrowingForever) {
    // A wide character the "C" locale cannot convert makes the C library report an error.
    const std::string text = str::format("abc%ls", L"\u0100");
    EXPECT_LE(text.size(), 3u);
    EXPECT_EQ(text, std::string("abc").substr(0, text.size()));
}

}  // namespace
