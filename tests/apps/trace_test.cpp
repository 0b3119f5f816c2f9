// Trace line formatting: quoting with escapes, shortest doubles, and whole lines on a descriptor.
#include <unistd.h>

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

TEST(ZnhostTraceNumber, IntegersInDecimal) {
    EXPECT_EQ(traceNumber(0), "0");
    EXPECT_EQ(traceNumber(-1), "-1");
    EXPECT_EQ(traceNumber(2147483647), "2147483647");
}

TEST(ZnhostFormatTraceCall, JoinsArgumentsWithCommaAndBlank) {
    EXPECT_EQ(znhost::formatTraceCall("host", "configDir", {}), "host.configDir()");
    EXPECT_EQ(znhost::formatTraceCall("sim0", "thresholdRange", {"0", "2"}),
              "sim0.thresholdRange(0, 2)");
}

class ZnhostTracerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(pipe(fds), 0); }
    void TearDown() override {
        for (int fd : fds)
            if (fd >= 0) close(fd);
    }
    // Everything written so far; closes the write end first so that reading ends.
    std::string drain() {
        close(fds[1]);
        fds[1] = -1;
        std::string text;
        char chunk[256];
        ssize_t n;
        while ((n = read(fds[0], chunk, sizeof chunk)) > 0)
            text.append(chunk, n);
        return text;
    }
    int fds[2] = {-1, -1};
};

TEST_F(ZnhostTracerTest, EnabledWritesOnePrefixedLinePerCall) {
    znhost::Tracer tracer(true, fds[1]);
    tracer.call("sim1", "runAcquisition",
                {traceNumber(2), traceNumber(0.05), traceNumber(1), traceQuoted("t.txt")});
    tracer.call("devcontrol", "start", {"sim1"});
    EXPECT_EQ(drain(),
              "trace: sim1.runAcquisition(2, 0.05, 1, \"t.txt\")\n"
              "trace: devcontrol.start(sim1)\n");
}

TEST_F(ZnhostTracerTest, DisabledWritesNothing) {
    znhost::Tracer tracer(false, fds[1]);
    tracer.call("host", "configDir", {});
    EXPECT_EQ(drain(), "");
}

}  // namespace
