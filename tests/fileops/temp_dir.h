// Per-test scratch directory and small whole-file helpers for the file utility tests.
#pragma once

#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fileops_test {

using testsupport::TempDir;

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
