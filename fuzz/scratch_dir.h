// A private directory for the files a fuzz target writes, kept for the life of the process so that
// each input costs one file write, not a directory. Removed when the process ends normally.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/check.h"

namespace fuzzsupport {

class ScratchDir {
public:
    ScratchDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "rcfuzz-XXXXXX").string();
        FUZZ_CHECK(mkdtemp(pattern.data()) != nullptr, "a scratch directory can be created");
        mPath = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    FUZZ_CHECK(out.good(), "the scratch file can be written");
}

inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace fuzzsupport
