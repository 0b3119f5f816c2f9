// The command language: splitting, the quote-aware tokenizer and the command-line parser.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugin/remotectrl.h"

namespace {

using PluginRemoteCtrl::ParsedCommand;
using PluginRemoteCtrl::RemoteCtrl;
using Tokens = std::vector<std::string>;

struct SplitCase {
    const char* name;
    std::string text;
    std::string delimiters;
    Tokens pieces;
};

TEST(SplitString, KeepsEmptyPiecesAndYieldsOneMoreThanDelimiters) {
    const SplitCase cases[] = {
        {"plain", "a,b,c", ",", {"a", "b", "c"}},
        {"empty text", "", ",", {""}},
        {"no delimiter", "abc", ",", {"abc"}},
        {"adjacent delimiters", "a,,b", ",", {"a", "", "b"}},
        {"delimiter at both ends", ",a,", ",", {"", "a", ""}},
        // With a longer delimiter string the search resumes its length after the delimiter found.
        {"multi-character string skips ahead", "a(b,c", "(,", {"a", "", ""}},
        {"only delimiters", ",,", ",", {"", "", ""}},
    };
    for (const SplitCase& c : cases)
        EXPECT_EQ(PluginRemoteCtrl::splitString(c.text, c.delimiters), c.pieces) << c.name;
}

struct TokenCase {
    const char* name;
    std::string text;
    Tokens tokens;
};

TEST(TokenizeQuotedString, FollowsTheQuoteAndBlankRules) {
    const TokenCase cases[] = {
        {"plain", "a,b,c", {"a", "b", "c"}},
        {"blanks around tokens", " a , b ", {"a", "b"}},
        {"empty text", "", {""}},
        {"empty middle", "a,,b", {"a", "", "b"}},
        {"trailing delimiter", "a,", {"a", ""}},
        {"blanks only", " , ", {"", ""}},
        {"quoted delimiter", "\"x,y\",z", {"x,y", "z"}},
        {"closing piece loses leading blanks", "\"a, b, c\"", {"a, b,c"}},
        {"blanks before closing quote stay", "\"a,  b  \"", {"a,b  "}},
        {"empty middle inside quotes", "\"a,,b\"", {"a,,b"}},
        {"quoted trailing delimiter", "\"a,\"", {"a,"}},
        {"inner blanks of a whole quoted token", "\" a \",b", {" a ", "b"}},
        {"empty quoted token", "\"\",b", {"", "b"}},
        {"inner quote is ordinary", "\"a\"b\",c", {"a\"b", "c"}},
        {"quote not at start is ordinary", "x\"y\",z", {"x\"y\"", "z"}},
        {"unterminated quote dropped", "\"abc", {}},
        {"unterminated quote after token", "a,\"b,c", {"a"}},
        {"tabs are not blanks", "\ta", {"\ta"}},
        {"blank middle piece keeps quote open", "\"a, ,b\"", {"a, ,b"}},
    };
    for (const TokenCase& c : cases) {
        auto tokens = RemoteCtrl::tokenizeQuotedString(c.text, ",");
        ASSERT_TRUE(tokens.has_value()) << c.name;
        EXPECT_EQ(*tokens, c.tokens) << c.name;
    }
}

TEST(TokenizeQuotedString, ALoneQuotePieceIsAFailure) {
    for (const char* text : {"\"", "a, \"", " \" ,b"})
        EXPECT_FALSE(RemoteCtrl::tokenizeQuotedString(text, ",").has_value()) << text;
}

struct ParseCase {
    const char* line;
    ParsedCommand::Kind kind;
    std::string name;
    Tokens args;
};

TEST(ParseCommandString, SplitsNameAndArguments) {
    using Kind = ParsedCommand::Kind;
    const ParseCase cases[] = {
        {"STOP()", Kind::Command, "STOP", {""}},
        {"STOP", Kind::Ignored, "", {}},
        {"STOP(", Kind::Command, "STOP", {""}},
        {"STOP(a", Kind::Command, "STOP", {""}},
        {"start( 1 , 2 )", Kind::Command, "start", {"1", "2"}},
        {" STOP()", Kind::Command, " STOP", {""}},
        {"(x)", Kind::Command, "", {"x"}},
        {"A(b)(c)", Kind::Command, "A", {"b"}},
        {"A(b,c) x", Kind::Command, "A", {"b", "c)"}},
        {"START(0,100,0.5,\"f.txt\",10)",
         Kind::Command,
         "START",
         {"0", "100", "0.5", "f.txt", "10"}},
        {"GUI_SETFILE(0,\"/tmp/a(1).txt\")", Kind::Command, "GUI_SETFILE", {"0"}},
        {"A(\"x, y\",z)", Kind::Command, "A", {"x,y", "z"}},
        {"A(\")", Kind::SyntaxError, "", {}},
    };
    for (const ParseCase& c : cases) {
        ParsedCommand parsed = PluginRemoteCtrl::parseCommandString(c.line);
        EXPECT_EQ(parsed.kind, c.kind) << c.line;
        EXPECT_EQ(parsed.name, c.name) << c.line;
        EXPECT_EQ(parsed.args, c.args) << c.line;
    }
}

}  // namespace
