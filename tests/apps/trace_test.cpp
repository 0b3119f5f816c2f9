// Trace line formatting: quoting with escapes, shortest doubles, and whole lines on a descriptor.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "apps/znhost/trace.h"

namespace {

using znhost::traceNumber;
using znhost::traceQuoted;

struct QuoteCase {
    const char* name;
    std::string text;
    const char* expected;
};

// Rows print as their name in test listings.
void PrintTo(const QuoteCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostTraceQuotedTest : public ::testing::TestWithParam<QuoteCase> {};

TEST_P(ZnhostTraceQuotedTest, EscapesAsDocumented) {
    EXPECT_EQ(traceQuoted(GetParam().text.c_str()), GetParam().expected);
}

const QuoteCase kQuoteCases[] = {
    {"plain", "run.txt", "\"run.txt\""},
    {"empty", "", "\"\""},
    {"double_quote", "a\"b", "\"a\\\"b\""},
    {"backslash", "a\\b", "\"a\\\\b\""},
    {"line_feed", "a\nb", "\"a\\x0ab\""},
    {"first_control_byte", "\x01", "\"\\x01\""},
    {"last_control_byte", "\x1f", "\"\\x1f\""},
    {"space_is_plain", " ", "\" \""},
    {"tilde_is_plain", "~", "\"~\""},
    {"delete_byte", "\x7f", "\"\\x7f\""},
    {"high_byte", "\xc3\xa9", "\"\\xc3\\xa9\""},
    {"top_byte", "\xff", "\"\\xff\""},
    {"parentheses_and_commas", "f(1,2).txt", "\"f(1,2).txt\""},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostTraceQuotedTest, ::testing::ValuesIn(kQuoteCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ZnhostTraceQuoted, NullPointerIsWrittenAsNull) {
    EXPECT_EQ(traceQuoted(nullptr), "null");
}

struct DoubleCase {
    const char* name;
    double value;
    const char* expected;
};

// Rows print as their name in test listings.
void PrintTo(const DoubleCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostTraceDoubleTest : public ::testing::TestWithParam<DoubleCase> {};

TEST_P(ZnhostTraceDoubleTest, ShortestTextThatReadsBack) {
    EXPECT_EQ(traceNumber(GetParam().value), GetParam().expected);
}

const DoubleCase kDoubleCases[] = {
    {"whole", 10.0, "10"},
    {"zero", 0.0, "0"},
    {"negative_zero", -0.0, "-0"},
    {"tenth", 0.1, "0.1"},
    {"sum_not_tenth", 0.1 + 0.2, "0.30000000000000004"},
    {"half", 0.5, "0.5"},
    {"negative", -2.25, "-2.25"},
    {"large", 1e21, "1e+21"},
    {"small", 1e-7, "1e-07"},
    {"infinity", std::numeric_limits<double>::infinity(), "inf"},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostTraceDoubleTest, ::testing::ValuesIn(kDoubleCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
