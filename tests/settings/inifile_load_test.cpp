#include "settings/inifile.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/settings/temp_dir.h"

namespace {

using settings_test::TempDir;
using settings_test::writeFile;

const char* const EXAMPLE =
    "Mode=fast\n"
    "\n"
    "[Settings]\n"
    "Port=59876\n"
    "Port = 1\n"
    "; note\n"
    "Path=a=b\n"
    "[Other\n"
    "Port=7\n"
    "[Settings]\n"
    "Port=42\n";

class IniLoadTest : public ::testing::Test {
protected:
    // Writes `bytes` to a fresh file and loads it into `ini`.
    int loadBytes(const std::string& bytes) {
        writeFile(path, bytes);
        return ini.load(nullptr);
    }

    TempDir dir;
    std::string path = dir.file("test.ini");
    IniFile ini{path.c_str(), "="};
};

TEST_F(IniLoadTest, ExampleFileEntries) {
    ASSERT_EQ(loadBytes(EXAMPLE), 0);
    struct Row {
        const char* name;
        const char* section;
        const char* key;
        const char* value;
        int index;
    };
    const Row rows[] = {
        {"before any header", "!", "Mode", "fast", 0},
        {"blanks around separator stay", "Settings", "Port ", " 1", 2},
        {"no separator", "Settings", "; note", "", 3},
        {"further separators in value", "Settings", "Path", "a=b", 4},
        {"header without closing bracket", "Othe", "Port", "7", 5},
        {"repeated key replaces, index too", "Settings", "Port", "42", 6},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ini.get(row.section, row.key, "<missing>"), row.value);
        bool listed = false;
        for (const IniItem& item : ini.getSectionItems(row.section)) {
            if (item.key != row.key) continue;
            listed = true;
            EXPECT_EQ(item.section, row.section);
            EXPECT_EQ(item.index, row.index);
        }
        EXPECT_TRUE(listed);
    }
    EXPECT_EQ(ini.getInt("Settings", "Port", 0), 42);
    EXPECT_EQ(ini.getSectionCount(), 3);
    EXPECT_EQ(ini.getSectionKeys("Settings"),
              (std::vector<std::string>{"Port ", "; note", "Path", "Port"}));
}

TEST_F(IniLoadTest, LineForms) {
    struct Row {
        const char* name;
        std::string bytes;
        const char* section;
        const char* key;
        const char* value;
    };
    const std::vector<Row> rows = {
        {"CR LF endings", "[S]\r\nk=v\r\n", "S", "k", "v"},
        {"blanks around lines", "  [S]  \n   k=v   \n", "S", "k", "v"},
        {"last line without line feed", "[S]\nk=v", "S", "k", "v"},
        {"blank and CR only line ignored", " \r \n[S]\nk=v\n", "S", "k", "v"},
        {"byte-order mark makes no header", "\xEF\xBB\xBF[Settings]\nPort=1\n", "!", "Port", "1"},
        {"byte-order mark line is a key", "\xEF\xBB\xBF[Settings]\n", "!", "\xEF\xBB\xBF[Settings]",
         ""},
        {"tab before key stays", "[S]\n\tk=v\n", "S", "\tk", "v"},
        {"tab after header keeps bracket", "[Settings]\t\nk=v\n", "Settings]", "k", "v"},
        {"tab before value stays", "k=\tv\n", "!", "k", "\tv"},
        {"opening bracket alone is a key", "[\n", "!", "[", ""},
        {"empty brackets name the empty section", "[]\nk=v\n", "", "k", "v"},
        {"empty key", "=5\n", "!", "", "5"},
        {"empty value", "Key=\n", "!", "Key", ""},
        {"zero byte cuts the line", std::string("k=v\0tail\n", 9), "!", "k", "v"},
        {"no comment syntax", "# c=1\n", "!", "# c", "1"},
        {"header naming the first section", "a=1\n[!]\nb=2\n", "!", "b", "2"},
        {"names keep case", "[s]\nK=v\n", "s", "K", "v"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(loadBytes(row.bytes), 0);
        EXPECT_TRUE(ini.itemExists(row.section, row.key));
        EXPECT_EQ(ini.get(row.section, row.key, "<missing>"), row.value);
    }
}

TEST_F(IniLoadTest, SectionCountIsTheNumberOfHeaderLines) {
    struct Row {
        const char* name;
        std::string bytes;
        int count;
    };
    const std::vector<Row> rows = {
        {"entries before first header not counted", "a=1\n[S]\nb=2\n", 1},
        {"repeated header counted each time", "[S]\na=1\n[S]\nb=2\n", 2},
        {"header without entries counted", "[S]\n[T]\n", 2},
        {"no headers", "a=1\n", 0},
        {"empty file", "", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(loadBytes(row.bytes), 0);
        EXPECT_EQ(ini.getSectionCount(), row.count);
    }
}

TEST_F(IniLoadTest, LineLongerThanSixteenKilobytesIsReadWhole) {
    const std::string value(20000, 'x');
    ASSERT_EQ(loadBytes("k=" + value + "\nafter=1\n"), 0);
    EXPECT_EQ(ini.get("!", "k", ""), value);
    EXPECT_EQ(ini.getInt("!", "after", 0), 1);
}

TEST_F(IniLoadTest, MultiCharacterSeparatorPastTheLineEndGivesEmptyValue) {
    IniFile wide(path.c_str(), ":=");
    writeFile(path, "a:\nb=\nc:=v\nd=:w\nafter:=1\n");
    ASSERT_EQ(wide.load(nullptr), 0);
    EXPECT_EQ(wide.get("!", "a", "<missing>"), "");
    EXPECT_EQ(wide.get("!", "b", "<missing>"), "");
    EXPECT_EQ(wide.get("!", "c", "<missing>"), "v");
    EXPECT_EQ(wide.get("!", "d", "<missing>"), "w");
    EXPECT_EQ(wide.get("!", "after", "<missing>"), "1") << "the load goes on after such lines";
}

TEST_F(IniLoadTest, MissingFileEmptiesTheStoreAndRecordsTheMessage) {
    ASSERT_EQ(loadBytes(EXAMPLE), 0);
    const std::string missing = dir.file("absent.ini");
    EXPECT_EQ(ini.load(missing.c_str()), -5);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing);
    EXPECT_FALSE(ini.itemExists("!", "Mode"));
    EXPECT_TRUE(ini.getSectionItems("Settings").empty());
    EXPECT_EQ(ini.getSectionCount(), 0);
}

TEST_F(IniLoadTest, SuccessfulLoadKeepsThePreviousError) {
    const std::string missing = dir.file("absent.ini");
    ASSERT_EQ(ini.load(missing.c_str()), -5);
    ASSERT_EQ(loadBytes(EXAMPLE), 0);
    EXPECT_EQ(ini.getLastError(), "Cannot open file " + missing);
}

TEST_F(IniLoadTest, ExplicitPathLeavesTheConstructorFileName) {
    const std::string other = dir.file("other.ini");
    writeFile(path, "from=own\n");
    writeFile(other, "from=other\n");
    ASSERT_EQ(ini.load(other.c_str()), 0);
    EXPECT_EQ(ini.get("!", "from", ""), "other");
    ASSERT_EQ(ini.load(nullptr), 0);
    EXPECT_EQ(ini.get("!", "from", ""), "own");
}

}  // namespace
