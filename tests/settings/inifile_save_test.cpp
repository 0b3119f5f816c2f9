#include "settings/inifile.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/settings/temp_dir.h"

namespace {

using settings_test::readFile;
using settings_test::TempDir;
using settings_test::writeFile;

class IniSaveTest : public ::testing::Test {
protected:
    // Saves `ini` to the fixture's file and returns the bytes written.
    std::string savedBytes(IniFile& store) {
        EXPECT_EQ(store.save(path.c_str()), 0);
        return readFile(path);
    }

    TempDir dir;
    std::string path = dir.file("saved.ini");
};

TEST_F(IniSaveTest, WritesExactBytes) {
    struct Entry {
        const char* section;
        const char* key;
        const char* value;
    };
    struct Row {
        const char* name;
        std::vector<Entry> entries;
        std::string bytes;
    };
    const std::vector<Row> rows = {
        {"first section without header, keys in byte order",
         {{"!", "Mode", "fast"}, {"Settings", "Port", "59876"}, {"Settings", "Path", "a=b"}},
         "Mode=fast\r\n\n[Settings]\r\nPath=a=b\r\nPort=59876\r\n"},
        {"empty store", {}, ""},
        {"first entry under a header has no empty line before it",
         {{"A", "k", "1"}, {"B", "k", "2"}},
         "[A]\r\nk=1\r\n\n[B]\r\nk=2\r\n"},
        {"first section gets a header when another sorts before it",
         {{"!", "m", "n"}, {" x", "k", "v"}},
         "[ x]\r\nk=v\r\n\n[!]\r\nm=n\r\n"},
        {"empty value keeps the separator", {{"S", "; note", ""}}, "[S]\r\n; note=\r\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        for (const Entry& entry : row.entries)
            ini.set(entry.section, entry.key, entry.value);
        EXPECT_EQ(savedBytes(ini), row.bytes);
    }
}

TEST_F(IniSaveTest, WritesTheObjectSeparator) {
    IniFile ini("unused.ini", " : ");
    ini.set("S", "k", "v");
    EXPECT_EQ(savedBytes(ini), "[S]\r\nk : v\r\n");
}

TEST_F(IniSaveTest, RoundTripKeepsEntriesAndRenumbersInStoreOrder) {
    IniFile original("unused.ini", "=");
    original.set("!", "Mode", "fast");
    original.set("Settings", "Port ", " 1");
    original.set("Settings", "Path", "a=b");
    original.set("Settings", "Alpha", "z");
    savedBytes(original);

    IniFile reloaded(path.c_str(), "=");
    ASSERT_EQ(reloaded.load(nullptr), 0);
    EXPECT_EQ(reloaded.get("!", "Mode", ""), "fast");
    EXPECT_EQ(reloaded.get("Settings", "Port ", ""), " 1") << "inner blanks survive";
    EXPECT_EQ(reloaded.get("Settings", "Path", ""), "a=b");
    EXPECT_EQ(reloaded.getSectionKeys("Settings"),
              (std::vector<std::string>{"Alpha", "Path", "Port "}));
    EXPECT_EQ(reloaded.getSectionCount(), 1);
}

TEST_F(IniSaveTest, RoundTripLosesWhatTheReaderCannotTellApart) {
    struct Row {
        const char* name;
        const char* key;
        const char* value;
        const char* readKey;
        const char* readValue;
    };
    const Row rows[] = {
        {"separator inside key", "a=b", "c", "a", "b=c"},
        {"trailing blank of value", "k", "v ", "k", "v"},
        {"leading blank of key", " k", "v", "k", "v"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        IniFile ini("unused.ini", "=");
        ini.set("S", row.key, row.value);
        savedBytes(ini);
        IniFile reloaded(path.c_str(), "=");
        ASSERT_EQ(reloaded.load(nullptr), 0);
        EXPECT_EQ(reloaded.getSectionKeys("S"), std::vector<std::string>{row.readKey});
        EXPECT_EQ(reloaded.get("S", row.readKey, "<missing>"), row.readValue);
    }
}

TEST_F(IniSaveTest, NullPathWritesTheConstructorFileName) {
    const std::string own = dir.file("own.ini");
    IniFile ini(own.c_str(), "=");
    ini.set("S", "k", "v");
    ASSERT_EQ(ini.save(path.c_str()), 0);
    EXPECT_EQ(readFile(own), "") << "an explicit path leaves the file name alone";
    ASSERT_EQ(ini.save(nullptr), 0);
    EXPECT_EQ(readFile(own), "[S]\r\nk=v\r\n");
}

TEST_F(IniSaveTest, UnwritablePathFailsAndKeepsTheStore) {
    const std::string rows[] = {dir.file("missing/out.ini"), dir.path()};
    for (const std::string& target : rows) {
        SCOPED_TRACE(target);
        IniFile ini("unused.ini", "=");
        ini.set("S", "k", "v");
        EXPECT_EQ(ini.save(target.c_str()), -5);
        EXPECT_EQ(ini.getLastError(), "Cannot open file " + target);
        EXPECT_EQ(ini.get("S", "k", ""), "v");
    }
}

}  // namespace
