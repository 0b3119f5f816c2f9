// How rcclient reads a command line: its kind for reply pairing, the server's quote rules, and a
// START's expected duration.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/rcclient/commands.h"

namespace {

using rcclient::LineKind;

struct KindCase {
    const char* name;
    const char* line;
    LineKind kind;
};

// Rows print as their name in test listings.
void PrintTo(const KindCase& row, std::ostream* out) {
    *out << row.name;
}

class RcclientLineKindTest : public ::testing::TestWithParam<KindCase> {};

TEST_P(RcclientLineKindTest, FollowsTheServersParsing) {
    EXPECT_EQ(rcclient::classifyCommand(rcclient::trimCommand(GetParam().line)), GetParam().kind);
}

const KindCase kKindCases[] = {
    {"start", "START(0,1,1,f,1)", LineKind::Start},
    {"start_lower_case", "start(0,1,1,f,1)", LineKind::Start},
    {"start_empty_parentheses", "START()", LineKind::Start},
    {"start_leading_blank_is_unknown", " START(0,1,1,f,1)", LineKind::Other},
    {"start_without_parenthesis_is_ignored", "START", LineKind::Other},
    {"isrunning", "GUI_ISRUNNING(0)", LineKind::Other},
    {"stop", "STOP()", LineKind::Other},
    {"setfile_two_arguments", "GUI_SETFILE(0,x)", LineKind::Other},
    {"setfile_sync_line", "GUI_SETFILE()", LineKind::SelfSync},
    {"setfile_mixed_case_one_argument", "Gui_SetFile(0)", LineKind::SelfSync},
    {"setfile_three_arguments", "GUI_SETFILE(0,a,b)", LineKind::SelfSync},
    {"setfile_quoted_comma", "GUI_SETFILE(\"0,a\")", LineKind::SelfSync},
    {"setfile_unterminated_quote_dropped", "GUI_SETFILE(0,\"a)", LineKind::SelfSync},
    {"setfile_second_parenthesis_cuts_the_text", "GUI_SETFILE(0(1),x)", LineKind::SelfSync},
    {"setfile_lone_quote_is_a_syntax_error", "GUI_SETFILE(\")", LineKind::Other},
    {"setfile_leading_blank_is_unknown", " GUI_SETFILE()", LineKind::Other},
    {"unknown", "FOO()", LineKind::Other},
    {"quit", "QUIT()", LineKind::Quit},
    {"quit_trailing_blanks_and_cr", "QUIT()  \r", LineKind::Quit},
    {"quit_lower_case_is_unknown", "quit()", LineKind::Other},
    {"quit_leading_blank_is_unknown", " QUIT()", LineKind::Other},
    {"empty", "", LineKind::Blank},
    {"blanks", "   \r", LineKind::Blank},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientLineKindTest, ::testing::ValuesIn(kKindCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RcclientTrimCommand, RemovesOnlyTrailingBlanksAndLineEnds) {
    EXPECT_EQ(rcclient::trimCommand("  A(1) \r\n"), "  A(1)");
    EXPECT_EQ(rcclient::trimCommand("A(\t)\t"), "A(\t)\t");
}

struct TokenCase {
    const char* name;
    const char* text;
    bool parses;
    std::vector<std::string> tokens;
};

void PrintTo(const TokenCase& row, std::ostream* out) {
    *out << row.name;
}

class RcclientTokenizeTest : public ::testing::TestWithParam<TokenCase> {};

TEST_P(RcclientTokenizeTest, CutsAsTheServerDoes) {
    std::vector<std::string> tokens = {"left over"};
    ASSERT_EQ(rcclient::tokenizeArguments(GetParam().text, tokens), GetParam().parses);
    if (GetParam().parses) {
        EXPECT_EQ(tokens, GetParam().tokens);
    }
}

const TokenCase kTokenCases[] = {
    {"plain", "a,b,c", true, {"a", "b", "c"}},
    {"blanks_around", " a , b ", true, {"a", "b"}},
    {"empty_text", "", true, {""}},
    {"empty_middle", "a,,b", true, {"a", "", "b"}},
    {"trailing_comma", "a,", true, {"a", ""}},
    {"quoted_comma", "\"x,y\",z", true, {"x,y", "z"}},
    {"closing_piece_loses_leading_blank", "\"a, b, c\"", true, {"a, b,c"}},
    {"closing_piece_keeps_blanks_before_quote", "\"a,  b  \"", true, {"a,b  "}},
    {"empty_middle_piece_stays_open", "\"a,,b\"", true, {"a,,b"}},
    {"quoted_inner_blanks", "\" a \",b", true, {" a ", "b"}},
    {"inner_quote", "\"a\"b\",c", true, {"a\"b", "c"}},
    {"quote_not_at_start", "x\"y\",z", true, {"x\"y\"", "z"}},
    {"unterminated_dropped", "\"abc", true, {}},
    {"unterminated_after_plain", "a,\"b,c", true, {"a"}},
    {"tab_not_trimmed", "\ta", true, {"\ta"}},
    {"lone_quote", "\"", false, {}},
    {"lone_quote_after_blank", "a, \"", false, {}},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientTokenizeTest, ::testing::ValuesIn(kTokenCases),
                         [](const auto& info) { return std::string(info.param.name); });

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
    {"quoted_count", "START(0,\"3\",2,f,1)", true, 6.0},
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
