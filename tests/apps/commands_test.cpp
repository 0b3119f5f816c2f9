// How rcclient classifies a command line and estimates a START's duration.
#include <gtest/gtest.h>

#include <string>

#include "apps/rcclient/commands.h"

namespace {

using rcclient::ReplyRule;

struct RuleCase {
    const char* name;
    const char* line;
    ReplyRule rule;
};

// Rows print as their name in test listings.
void PrintTo(const RuleCase& row, std::ostream* out) {
    *out << row.name;
}

class RcclientReplyRuleTest : public ::testing::TestWithParam<RuleCase> {};

TEST_P(RcclientReplyRuleTest, FollowsTheServersParsing) {
    EXPECT_EQ(rcclient::replyRule(rcclient::trimCommand(GetParam().line)), GetParam().rule);
}

const RuleCase kRuleCases[] = {
    {"start", "START(0,1,1,f,1)", ReplyRule::Start},
    {"start_lower_case", "start(0,1,1,f,1)", ReplyRule::Start},
    {"start_empty_parentheses", "START()", ReplyRule::Start},
    {"start_leading_blank_is_unknown", " START(0,1,1,f,1)", ReplyRule::MaySkip},
    {"start_without_parenthesis_is_ignored", "START", ReplyRule::MaySkip},
    {"isrunning", "GUI_ISRUNNING(0)", ReplyRule::Answer},
    {"isrunning_mixed_case", "Gui_IsRunning(0)", ReplyRule::Answer},
    {"stop", "STOP()", ReplyRule::MaySkip},
    {"gui_start", "GUI_START(0)", ReplyRule::MaySkip},
    {"gui_setfile", "GUI_SETFILE(0,x)", ReplyRule::MaySkip},
    {"gui_stop", "GUI_STOP(0)", ReplyRule::MaySkip},
    {"unknown", "FOO()", ReplyRule::MaySkip},
    {"quit", "QUIT()", ReplyRule::Quit},
    {"quit_trailing_blanks_and_cr", "QUIT()  \r", ReplyRule::Quit},
    {"quit_lower_case_is_unknown", "quit()", ReplyRule::MaySkip},
    {"quit_leading_blank_is_unknown", " QUIT()", ReplyRule::MaySkip},
    {"empty", "", ReplyRule::Blank},
    {"blanks", "   \r", ReplyRule::Blank},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientReplyRuleTest, ::testing::ValuesIn(kRuleCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RcclientTrimCommand, RemovesOnlyTrailingBlanksAndLineEnds) {
    EXPECT_EQ(rcclient::trimCommand("  A(1) \r\n"), "  A(1)");
    EXPECT_EQ(rcclient::trimCommand("A(\t)\t"), "A(\t)\t");
}

struct DurationCase {
    const char* name;
    const char* line;
    bool known;
    double seconds;
};

// Rows print as their name in test listings.
void PrintTo(const DurationCase& row, std::ostream* out) {
    *out << row.name;
}

class RcclientStartDurationTest : public ::testing::TestWithParam<DurationCase> {};

TEST_P(RcclientStartDurationTest, IsCountTimesTime) {
    double seconds = -1;
    EXPECT_EQ(rcclient::startDuration(GetParam().line, seconds), GetParam().known);
    if (GetParam().known) {
        EXPECT_DOUBLE_EQ(seconds, GetParam().seconds);
    }
}

const DurationCase kDurationCases[] = {
    {"plain", "START(0,10,0.1,run.txt,10)", true, 1.0},
    {"blanks_around_numbers", "START(0, 4 , 0.5 ,f,1)", true, 2.0},
    {"count_fraction_truncates", "START(0,2.9,1,f,1)", true, 2.0},
    {"quoted_comma_in_file", "START(0,3,2,\"a,b\",1)", true, 6.0},
    {"zero", "START(0,0,5,f,1)", true, 0.0},
    {"too_few_arguments", "START(0,10,0.1)", false, 0},
    {"negative_count", "START(0,-1,1,f,1)", false, 0},
    {"count_not_a_number", "START(0,x,1,f,1)", false, 0},
    {"negative_time", "START(0,1,-0.5,f,1)", false, 0},
    {"no_parenthesis", "START", false, 0},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientStartDurationTest, ::testing::ValuesIn(kDurationCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
