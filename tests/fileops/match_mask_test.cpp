// File-name masks: the rule table, a cross-check against a plain recursive matcher, and a
// pathological mask that a naive backtracker would take exponential time over.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <random>
#include <string>
#include <thread>

#include "fileops/fileops.h"

namespace {

struct MaskCase {
    const char* name;
    const char* fileName;
    const char* mask;
    bool matches;
};

class MaskRules : public ::testing::TestWithParam<MaskCase> {};

TEST_P(MaskRules, Matches) {
    const MaskCase& row = GetParam();
    EXPECT_EQ(row.matches, matchMask(row.fileName, row.mask))
        << "name '" << row.fileName << "' mask '" << row.mask << "'";
}

INSTANTIATE_TEST_SUITE_P(
    Table, MaskRules,
    ::testing::Values(MaskCase{"StarDotStarWithExtension", "data.txt", "*.*", true},
                      MaskCase{"StarDotStarWithoutDot", "data", "*.*", false},
                      MaskCase{"QuestionMatchesLetter", "abc", "a?c", true},
                      MaskCase{"QuestionNeverMatchesDot", "a.c", "a?c", false},
                      MaskCase{"QuestionMatchesQuestionMark", "a?c", "a?c", true},
                      MaskCase{"QuestionNeedsOneCharacter", ".txt", "?.txt", false},
                      MaskCase{"QuestionBeforeExtension", "a.txt", "?.txt", true},
                      MaskCase{"QuestionNotTwoCharacters", "ab.txt", "?.txt", false},
                      MaskCase{"CaseSensitiveExtension", "a.txt", "*.TXT", false},
                      MaskCase{"SameCaseExtension", "A.TXT", "*.TXT", true},
                      MaskCase{"CaseSensitiveLiteral", "abc", "ABC", false},
                      MaskCase{"EmptyMaskEmptyName", "", "", true},
                      MaskCase{"EmptyMaskOtherName", "a", "", false},
                      MaskCase{"EmptyNameAgainstLetter", "", "a", false},
                      MaskCase{"EmptyNameAgainstQuestion", "", "?", false},
                      MaskCase{"StarMatchesEmptyName", "", "*", true},
                      MaskCase{"StarsMatchEmptyName", "", "***", true},
                      MaskCase{"StarMatchesHiddenName", ".hidden", "*", true},
                      MaskCase{"StarMatchesDots", "a.b.c", "*", true},
                      MaskCase{"DoubleStarThenLetter", "a", "**a", true},
                      MaskCase{"DoubleStarLongerName", "bba", "**a", true},
                      MaskCase{"DoubleStarWrongEnd", "ab", "**a", false},
                      MaskCase{"StarsBetweenLetters", "abc", "a*b*c", true},
                      MaskCase{"StarsSpanRuns", "aXbYYc", "a*b*c", true},
                      MaskCase{"StarsWrongLastLetter", "abcb", "a*b*c", false},
                      MaskCase{"StarsWrongOrder", "acb", "a*b*c", false},
                      MaskCase{"TrailingStars", "abc", "abc**", true},
                      MaskCase{"TrailingStarThenQuestion", "abc", "abc*?", false},
                      MaskCase{"NameLongerThanMask", "abcd", "abc", false},
                      MaskCase{"MaskLongerThanName", "ab", "abc", false},
                      MaskCase{"BacktrackToLaterOccurrence", "aab", "*ab", true},
                      MaskCase{"BacktrackManyTimes", "mississippi", "m*iss*ppi", true},
                      MaskCase{"BacktrackFails", "mississippi", "m*iss*x", false},
                      MaskCase{"LastDotSegment", "a.b.c", "*.c", true},
                      MaskCase{"StarThenQuestionOnDot", "a.", "*?", false},
                      MaskCase{"StarThenQuestionOnLetter", ".a", "*?", true}),
    [](const ::testing::TestParamInfo<MaskCase>& info) { return std::string(info.param.name); });

TEST(MatchMask, NullArgumentsNeverMatch) {
    EXPECT_FALSE(matchMask(nullptr, "*"));
    EXPECT_FALSE(matchMask("a", nullptr));
}

// Obviously correct but exponential: tries every split at every star.
bool referenceMatch(const char* name, const char* mask) {
    if (*mask == '\0') return *name == '\0';
    if (*mask == '*') {
        return referenceMatch(name, mask + 1) || (*name != '\0' && referenceMatch(name + 1, mask));
    }
    if (*name == '\0') return false;
    const bool same = *mask == '?' ? *name != '.' : *mask == *name;
    return same && referenceMatch(name + 1, mask + 1);
}

std::string randomText(std::mt19937& random, const std::string& alphabet, int maxLength) {
    std::uniform_int_distribution<int> length(0, maxLength);
    std::uniform_int_distribution<size_t> pick(0, alphabet.size() - 1);
    std::string text(length(random), ' ');
    for (char& c : text)
        c = alphabet[pick(random)];
    return text;
}

TEST(MatchMask, AgreesWithReferenceOnRandomInputs) {
    std::mt19937 random(20240611);
    for (int i = 0; i < 50000; ++i) {
        const std::string name = randomText(random, "ab.?", 9);
        const std::string mask = randomText(random, "ab.?**", 7);
        ASSERT_EQ(referenceMatch(name.c_str(), mask.c_str()), matchMask(name.c_str(), mask.c_str()))
            << "name '" << name << "' mask '" << mask << "'";
    }
}

// With 40 stars a backtracker that remembers every star needs far more steps than could ever
// finish; the single restart point keeps it to name length times mask length.
TEST(MatchMask, ManyStarsAgainstLongNameFinishes) {
    const std::string name(20000, 'a');
    std::string mask;
    for (int i = 0; i < 40; ++i)
        mask += "*a";
    mask += "*b";

    std::packaged_task<bool()> task([&] { return matchMask(name.c_str(), mask.c_str()); });
    std::future<bool> result = task.get_future();
    std::thread worker(std::move(task));
    if (result.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        worker.detach();  // the process exit ends it; the test has already failed
        FAIL() << "matchMask did not finish";
    }
    worker.join();
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(matchMask((name + "b").c_str(), mask.c_str()));
}

}  // namespace
