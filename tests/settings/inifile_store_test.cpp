#include "settings/inifile.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/settings/temp_dir.h"

namespace {

using settings_test::TempDir;
using settings_test::writeFile;

std::vector<int> indexesOf(const IniFile& ini, const char* section) {
    std::vector<int> indexes;
    for (const IniItem& item : ini.getSectionItems(section))
        indexes.push_back(item.index);
    return indexes;
}

std::string printed(IniFile& ini) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(ini.print(), 0);
    return testing::internal::GetCapturedStdout();
}

TEST(IniStore, FreshStoreAnswersDefaults) {
    IniFile ini("unused.ini", "=");
    EXPECT_EQ(ini.get("Settings", "Port", "def"), "def");
    EXPECT_EQ(ini.getInt("Settings", "Port", 5), 5);
    EXPECT_EQ(ini.getDouble("Settings", "Port", 2.5), 2.5);
    EXPECT_FALSE(ini.itemExists("Settings", "Port"));
    EXPECT_EQ(ini.getSectionCount(), 0);
    EXPECT_TRUE(ini.getSectionItems("Settings").empty());
    EXPECT_TRUE(ini.getSectionKeys("Settings").empty());
    EXPECT_EQ(ini.getLastError(), "");
    EXPECT_FALSE(ini.itemExists("Settings", "Port")) << "look-ups never create entries";
    EXPECT_EQ(printed(ini), "");
}

TEST(IniStore, GetIntTable) {
    struct Row {
        const char* name;
        const char* value;
        int expected;
    };
    const Row rows[] = {
        {"blank before number", " 123", 123},
        {"text after number", "123abc", 123},
        {"no number", "abc", 5},
        {"empty", "", 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        ini.set("S", "k", row.value);
        EXPECT_EQ(ini.getInt("S", "k", 5), row.expected);
    }
}

TEST(IniStore, GetBoolTable) {
    struct Row {
        const char* name;
        const char* value;  // null: no entry
        bool withTrue;
        bool withFalse;
    };
    const Row rows[] = {
        {"true", "true", true, true},
        {"one", "1", true, true},
        {"upper case", "TRUE", false, false},
        {"capitalised", "True", false, false},
        {"zero", "0", false, false},
        {"yes", "yes", false, false},
        {"blank before one", " 1", false, false},
        {"empty value", "", true, false},
        {"missing entry", nullptr, true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        if (row.value != nullptr) ini.set("S", "k", row.value);
        EXPECT_EQ(ini.getBool("S", "k", true), row.withTrue);
        EXPECT_EQ(ini.getBool("S", "k", false), row.withFalse);
    }
}

TEST(IniStore, KeyNamesMatchExactly) {
    TempDir dir;
    const std::string path = dir.file("exact.ini");
    writeFile(path, "[Settings]\nPort =1\nport=2\n");
    IniFile ini(path.c_str(), "=");
    ASSERT_EQ(ini.load(nullptr), 0);
    EXPECT_EQ(ini.getInt("Settings", "Port", 5), 5);
    EXPECT_EQ(ini.getInt("settings", "port", 5), 5);
    EXPECT_EQ(ini.getInt("Settings", "port", 5), 2);
}

TEST(IniStore, CompositeKeysCollide) {
    IniFile ini("unused.ini", "=");
    ini.set("a|b", "c", "first");
    ini.set("a", "b|c", "second");
    EXPECT_EQ(ini.get("a|b", "c", ""), "second");
    EXPECT_EQ(ini.get("a", "b|c", ""), "second");
    EXPECT_EQ(ini.getSectionItems("a").size(), 1u) << "the entry holds the names it was set with";
    EXPECT_TRUE(ini.getSectionItems("a|b").empty());
}

TEST(IniStore, StoreOrderIsByteWise) {
    struct Row {
        const char* name;
        const char* firstSet;
        const char* secondSet;
        const char* expected;
    };
    const Row rows[] = {
        {"blank sorts before the separator", "A", "A B", "A B: k=v\nA: k=v\n"},
        {"upper case before lower case", "a", "Z", "Z: k=v\na: k=v\n"},
        {"high bytes last", "\xC3\xA9", "z", "z: k=v\n\xC3\xA9: k=v\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        ini.set(row.firstSet, "k", "v");
        ini.set(row.secondSet, "k", "v");
        EXPECT_EQ(printed(ini), row.expected);
    }
}

TEST(IniStore, PrintUsesFixedEqualsSign) {
    IniFile ini("unused.ini", ": ");
    ini.set("!", "Mode", "fast");
    ini.set("Settings", "Port", 59876);
    ini.set("Settings", "Path", "a=b");
    EXPECT_EQ(printed(ini), "!: Mode=fast\nSettings: Path=a=b\nSettings: Port=59876\n");
}

TEST(IniStore, SetWritesNumbersAsDefaultStreamText) {
    struct Row {
        const char* name;
        bool isInt;
        int intValue;
        double doubleValue;
        const char* expected;
    };
    const Row rows[] = {
        {"integer", true, 59876, 0, "59876"},
        {"negative integer", true, -5, 0, "-5"},
        {"half", false, 0, 0.5, "0.5"},
        {"whole double", false, 0, 2.0, "2"},
        {"six significant digits", false, 0, 3.14159265, "3.14159"},
        {"largest fixed", false, 0, 100000.0, "100000"},
        {"exponent from a million", false, 0, 1.0e6, "1e+06"},
        {"small exponent", false, 0, 0.00001, "1e-05"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        if (row.isInt) {
            ini.set("S", "k", row.intValue);
        } else {
            ini.set("S", "k", row.doubleValue);
        }
        EXPECT_EQ(ini.get("S", "k", ""), row.expected);
    }
}

class IniEditTest : public ::testing::Test {
protected:
    int loadBytes(const std::string& bytes) {
        writeFile(path, bytes);
        return ini.load(nullptr);
    }

    TempDir dir;
    std::string path = dir.file("edit.ini");
    IniFile ini{path.c_str(), "="};
};

TEST_F(IniEditTest, SetKeepsIndexOfReplacedEntryAndAppendsNewOnes) {
    ASSERT_EQ(loadBytes("[S]\na=1\nb=2\nc=3\n"), 0);
    ini.set("S", "a", "changed");
    ini.set("S", "d", "new");
    EXPECT_EQ(ini.getSectionKeys("S"), (std::vector<std::string>{"a", "b", "c", "d"}));
    EXPECT_EQ(indexesOf(ini, "S"), (std::vector<int>{0, 1, 2, 3}));
}

TEST_F(IniEditTest, NewEntryIndexIsTheEntryCountEvenWhenTaken) {
    struct Row {
        const char* name;
        const char* bytes;
        bool removeFirst;
    };
    const Row rows[] = {
        {"after a removal", "a=0\nb=1\nc=2\nd=3\ne=4\n", true},
        {"after a duplicated key", "a=0\na=1\nb=2\nc=3\nd=4\n", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(loadBytes(row.bytes), 0);
        if (row.removeFirst) ini.remove("!", "a");
        ini.set("!", "new", "x");
        int taken = 0;
        for (const IniItem& item : ini.getSectionItems("!"))
            taken += item.index == 4 ? 1 : 0;
        EXPECT_EQ(taken, 2);
    }
}

TEST_F(IniEditTest, SectionCountCacheAcrossEdits) {
    ASSERT_EQ(loadBytes("[S]\na=1\n[S]\nb=2\n[T]\nc=3\n"), 0);
    EXPECT_EQ(ini.getSectionCount(), 3) << "header lines as loaded";
    ini.set("S", "d", "4");
    EXPECT_EQ(ini.getSectionCount(), 2) << "recomputed after set";
    ini.removeSection("T");
    EXPECT_EQ(ini.getSectionCount(), 1) << "recomputed after removeSection";
    ini.remove("S", "a");
    ini.remove("S", "b");
    ini.remove("S", "d");
    EXPECT_EQ(ini.getSectionCount(), 0) << "recomputed after remove";
}

TEST(IniStore, SectionCountOfEmptyNamedSection) {
    struct Row {
        const char* name;
        std::vector<const char*> sections;
        int count;
    };
    const std::vector<Row> rows = {
        {"leading empty-named run not counted", {"", "~"}, 1},
        {"later empty-named run counted", {"", "A"}, 2},
        {"several keys one section", {"S", "S"}, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        int key = 0;
        for (const char* section : row.sections) {
            ini.set(section, std::to_string(key++).c_str(), "v");
        }
        EXPECT_EQ(ini.getSectionCount(), row.count);
    }
}

TEST_F(IniEditTest, RemovalsOfMissingNamesChangeNothing) {
    ASSERT_EQ(loadBytes("[S]\na=1\nb=2\n"), 0);
    ini.remove("S", "missing");
    ini.remove("s", "a");
    ini.removeSection("s");
    ini.removeSection("Missing");
    EXPECT_EQ(ini.getSectionKeys("S"), (std::vector<std::string>{"a", "b"}));
}

TEST_F(IniEditTest, RemoveSectionTakesOnlyThatSection) {
    ASSERT_EQ(loadBytes("x=0\n[S]\na=1\n[S2]\nb=2\n[S]\nc=3\n"), 0);
    ini.removeSection("S");
    EXPECT_TRUE(ini.getSectionItems("S").empty());
    EXPECT_TRUE(ini.itemExists("S2", "b"));
    EXPECT_TRUE(ini.itemExists("!", "x"));
}

}  // namespace
