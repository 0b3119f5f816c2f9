// Per-test scratch directory and small whole-file helpers for the file utility tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fileops_test {

// Creates a fresh directory under the system temp dir and removes it with all its contents.
class TempDir {
public:
    TempDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "fileops-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool ok() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline std::string readWhole(const std::string& fileName) {
    std::ifstream in(fileName, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeWhole(const std::string& fileName, const std::string& content) {
    std::ofstream out(fileName, std::ios::binary | std::ios::trunc);
    out << content;
}

// Fixture base: every test gets its own directory.
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.ok()) << "mkdtemp failed"; }
    TempDir dir;
};

}  // namespace fileops_test
