#include "settings/str.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// What formatted extraction from a default string stream yields: the behaviour to match.
template <typename T>
T streamReference(const std::string& text, T def) {
    std::stringstream in(text);
    T value{};
    in >> value;
    return in.fail() ? def : value;
}

bool sameDouble(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(StrToNumDef, IntTable) {
    struct Row {
        const char* name;
        std::string text;
        int expected;
    };
    const int def = -99;
    const std::vector<Row> rows = {
        {"empty", "", def},
        {"only blanks", "   ", def},
        {"plain", "42", 42},
        {"two leading blanks", "  42", 42},
        {"other leading white space", "\t\n\v\f\r42", 42},
        {"trailing text", "42abc", 42},
        {"letters", "abc", def},
        {"negative", "-7", -7},
        {"plus sign", "+7", 7},
        {"sign alone", "-", def},
        {"two signs", "+-5", def},
        {"blank after sign", "- 5", def},
        {"fraction cut", "4.9", 4},
        {"hex prefix reads the zero", "0x1F", 0},
        {"leading point", ".5", def},
        {"many leading zeros", "0000000000000000000000042", 42},
        {"largest", "2147483647", 2147483647},
        {"smallest", "-2147483648", -2147483647 - 1},
        {"just above range", "2147483648", def},
        {"just below range", "-2147483649", def},
        {"beyond long", "99999999999999999999", def},
        {"zero byte first",
         std::string("\0"
                     "5",
                     2),
         def},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(str::toNumDef<int>(row.text, def), row.expected);
        EXPECT_EQ(streamReference<int>(row.text, def), row.expected)
            << "table disagrees with stream";
    }
}

TEST(StrToNumDef, DoubleTable) {
    struct Row {
        const char* name;
        std::string text;
        double expected;
    };
    const double def = -99.5;
    const std::vector<Row> rows = {
        {"empty", "", def},
        {"only blanks", " \t ", def},
        {"plain", "3.5", 3.5},
        {"trailing text", "3.5xyz", 3.5},
        {"leading point", ".5", 0.5},
        {"negative leading point", "-.5", -0.5},
        {"exponent", "1e3", 1000.0},
        {"upper-case exponent with sign", "2E-2", 0.02},
        {"point before exponent", "1.e5", 100000.0},
        {"letter first", "x1", def},
        {"overflow", "1e999", def},
        {"negative overflow", "-1e999", def},
        {"underflow is zero", "1e-400", 0.0},
        {"exponent without digits", "1e", def},
        {"exponent sign without digits", "1e+", def},
        {"exponent then letters", "3.5exyz", def},
        {"exponent without mantissa", "e5", def},
        {"point then exponent", ".e5", def},
        {"second point ends", "1.2.3", 1.2},
        {"second exponent ends", "1e2e3", 100.0},
        {"point after exponent ends", "1e2.5", 100.0},
        {"hex reads the zero", "0x1p3", 0.0},
        {"infinity word", "inf", def},
        {"nan word", "nan", def},
        {"negative zero", "-0", -0.0},
        {"long mantissa", "0." + std::string(100, '3'), 1.0 / 3.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(sameDouble(str::toNumDef<double>(row.text, def), row.expected))
            << str::toNumDef<double>(row.text, def);
        EXPECT_TRUE(sameDouble(streamReference<double>(row.text, def), row.expected))
            << "table disagrees with stream";
    }
}

// Short strings over an alphabet rich in the characters that steer the number scanners.
std::vector<std::string> generatedTexts() {
    const std::string alphabet = "0123456789++--..eeEExX \t\nab0099";
    std::mt19937 random(20240611);
    std::uniform_int_distribution<std::size_t> length(0, 14);
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    std::vector<std::string> texts;
    for (int i = 0; i < 5000; ++i) {
        std::string text(length(random), ' ');
        for (char& c : text)
            c = alphabet[pick(random)];
        texts.push_back(text);
    }
    for (const char* edge : {"2147483647", "2147483648", "-2147483648", "-2147483649",
                             "9223372036854775807", "9223372036854775808", "1e308", "1.8e308",
                             "2.2250738585072014e-308", "4.9e-324", "2e-324", "1e-400"}) {
        texts.push_back(edge);
    }
    return texts;
}

TEST(StrToNumDef, IntMatchesStreamExtractionOnGeneratedTexts) {
    for (const std::string& text : generatedTexts()) {
        ASSERT_EQ(str::toNumDef<int>(text, -12345), streamReference<int>(text, -12345))
            << "text \"" << text << "\"";
    }
}

TEST(StrToNumDef, DoubleMatchesStreamExtractionOnGeneratedTexts) {
    for (const std::string& text : generatedTexts()) {
        const double got = str::toNumDef<double>(text, -123.25);
        const double want = streamReference<double>(text, -123.25);
        ASSERT_TRUE(sameDouble(got, want)) << "text \"" << text << "\": " << got << " vs " << want;
    }
}

// The command server and the host's thread may convert at the same time.
TEST(StrToNumDef, ConcurrentCallersGetTheSameResults) {
    const std::vector<std::string> texts = generatedTexts();
    auto convertAll = [&texts](std::vector<double>& out) {
        for (const std::string& text : texts) {
            out.push_back(str::toNumDef<double>(text, -1.0) + str::toNumDef<int>(text, -1));
        }
    };
    std::vector<double> first;
    std::vector<double> second;
    std::thread other(convertAll, std::ref(second));
    convertAll(first);
    other.join();
    ASSERT_EQ(first.size(), second.size());
    EXPECT_TRUE(std::memcmp(first.data(), second.data(), first.size() * sizeof(double)) == 0);
}

}  // namespace
