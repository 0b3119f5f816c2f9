// The strict reader: sections in file order, declared names, typed values and one-line errors.
#include <string>

#include <gtest/gtest.h>

#include "settings/strictini.h"
#include "tests/support/files.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"

namespace {

// A reader of sections S and E, with text t, whole w (0..9), real r (at least 0) and boolean b in
// S: the sections, the keys of S and what it read, or "error: " and the message after "PATH: ".
std::string strictRead(const char* bytes) {
    const testsupport::TempDir dir;
    const std::string path = dir.file("s.ini");
    if (bytes != nullptr) testsupport::writeFile(path, bytes);
    StrictIni ini(EmptyValues::AreErrors);
    std::string t = "-", listed;
    int w = -1;
    double r = -1;
    bool b = false;
    if (ini.load(path) != TextFileRead::Read ||
        !(ini.checkSections([](const std::string& s) { return s == "S" || s == "E"; }) &&
          ini.checkKeys("S", {"t", "w", "r", "b"}) && ini.readText("S", "t", t) &&
          ini.readWhole("S", "w", w, 0, 9) && ini.readReal("S", "r", r, 0.0) &&
          ini.readBool("S", "b", b)))
        return "error: " +
               ini.error().substr(ini.error().rfind(path + ": ", 0) == 0 ? path.size() + 2 : 0);
    for (const std::string& section : ini.sections())
        listed += "[" + section + "] ";
    for (const std::string& key : ini.keys("S"))
        listed += key + " ";
    return listed + "-> " + t + " " + std::to_string(w) + " " + testing::PrintToString(r) + " " +
           std::to_string(b);
}

struct StrictRow {
    const char* name;
    const char* bytes;  // nullptr: no file
    const char* expected;
};

const StrictRow kStrictRows[] = {
    {"order_last_wins", "[E]\n[S]\nt=\ta \nw=1\nb=1\n[E]\n[S]\nw=2", "[E] [S] t w b -> a 2 -1 1"},
    {"byte_order_mark_skipped", "\xEF\xBB\xBF[S]\nb=0\n", "[S] b -> - -1 -1 0"},
    {"entry_before_first_section", "t=1\n[S]\n", "error: t: entry before the first section"},
    {"unknown_section", "[S]\n[s]\n", "error: [s]: unknown section"},
    {"blanks_around_key", "[S]\nw = 5\n", "error: [S] w : unknown key"},
    {"empty_value", "[S]\nt=  \n", "error: [S] t: empty value"},
    {"whole_with_text", "[S]\nw=1x\n", "error: [S] w: \"1x\" is not a whole number from 0 to 9"},
    {"whole_out_of_range", "[S]\nw=10\n", "error: [S] w: \"10\" is not a whole number from 0 to 9"},
    {"real_hexadecimal", "[S]\nr=0x1p3\n", "error: [S] r: \"0x1p3\" is not a finite number"},
    {"real_below_minimum", "[S]\nr=-0.5\n", "error: [S] r: \"-0.5\" is below 0"},
    {"bool_word", "[S]\nb=yes\n", "error: [S] b: \"yes\" is not true, false, 1 or 0"},
    {"missing_file", nullptr, "error: cannot open: No such file or directory"},
};

class StrictIniTest : public ::testing::TestWithParam<StrictRow> {};

TEST_P(StrictIniTest, ReadsOrNamesTheFault) {
    EXPECT_EQ(strictRead(GetParam().bytes), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, StrictIniTest, ::testing::ValuesIn(kStrictRows),
                         testsupport::RowName());

}  // namespace
