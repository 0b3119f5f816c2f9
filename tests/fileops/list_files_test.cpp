// Directory listing by mask over a real scratch directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "tests/fileops/temp_dir.h"

namespace {

using fileops_test::TempDirTest;
using fileops_test::writeWhole;
using Names = std::vector<std::string>;

// The listing order is the system's, so results are compared as sorted sets.
Names sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
}

// Holds the files a.txt, b.dat and .hidden, the directory sub (with sub/inner.txt inside) and
// a symbolic link to sub, which the directory read reports as a link, not a directory.
class ListFiles : public TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        writeWhole(dir.file("a.txt"), "a");
        writeWhole(dir.file("b.dat"), "b");
        writeWhole(dir.file(".hidden"), "h");
        std::filesystem::create_directory(dir.file("sub"));
        writeWhole(dir.file("sub/inner.txt"), "i");
        ASSERT_EQ(0, symlink("sub", dir.file("link").c_str()));
    }
};

struct ListCase {
    const char* name;
    const char* mask;
    bool filesOnly;
    Names expected;
};

class ListByMask : public ListFiles, public ::testing::WithParamInterface<ListCase> {};

TEST_P(ListByMask, ListsMatchingEntries) {
    const ListCase& row = GetParam();
    Names files;
    ASSERT_EQ(0, listFilesInDir(dir.path().c_str(), row.mask, row.filesOnly, false, files));
    EXPECT_EQ(sorted(row.expected), sorted(files));
}

INSTANTIATE_TEST_SUITE_P(
    Masks, ListByMask,
    ::testing::Values(
        ListCase{"TxtOnlyTopLevel", "*.txt", false, {"a.txt"}},
        ListCase{
            "EverythingButDotEntries", "*", false, {".hidden", "a.txt", "b.dat", "sub", "link"}},
        ListCase{"FilesOnlyDropsDirectory", "*", true, {".hidden", "a.txt", "b.dat", "link"}},
        ListCase{"DotMaskSkipsDotEntries", ".*", false, {".hidden"}},
        ListCase{"StarDotStar", "*.*", false, {".hidden", "a.txt", "b.dat"}},
        ListCase{"QuestionNeedsOneLetter", "?.txt", false, {"a.txt"}},
        ListCase{"DirectoryByName", "s*", false, {"sub"}},
        ListCase{"DirectoryByNameFilesOnly", "s*", true, {}}, ListCase{"EmptyMask", "", false, {}},
        ListCase{"CaseSensitive", "*.TXT", false, {}}),
    [](const ::testing::TestParamInfo<ListCase>& info) { return std::string(info.param.name); });

TEST_F(ListFiles, FullPathJoinsWithSlash) {
    Names files;
    ASSERT_EQ(0, listFilesInDir(dir.path().c_str(), "*.txt", true, true, files));
    EXPECT_EQ(Names{dir.path() + "/a.txt"}, files);
}

TEST_F(ListFiles, FullPathAddsSlashEvenAfterTrailingSlash) {
    Names files;
    const std::string withSlash = dir.path() + "/";
    ASSERT_EQ(0, listFilesInDir(withSlash.c_str(), "*.txt", true, true, files));
    EXPECT_EQ(Names{dir.path() + "//a.txt"}, files);
}

TEST_F(ListFiles, AppendsAfterExistingNames) {
    Names files = {"first", "second"};
    ASSERT_EQ(0, listFilesInDir(dir.path().c_str(), "*.dat", false, false, files));
    EXPECT_EQ((Names{"first", "second", "b.dat"}), files);
}

TEST_F(ListFiles, UnreadableDirectoryReturnsMinus5AndAppendsNothing) {
    Names files = {"keep"};
    EXPECT_EQ(-5, listFilesInDir(dir.file("missing").c_str(), "*", false, false, files));
    EXPECT_EQ(-5, listFilesInDir(dir.file("a.txt").c_str(), "*", false, false, files));
    EXPECT_EQ(-5, listFilesInDir(nullptr, "*", false, false, files));
    EXPECT_EQ(Names{"keep"}, files);
}

}  // namespace
