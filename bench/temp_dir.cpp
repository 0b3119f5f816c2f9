#include "bench/temp_dir.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace bench {

TempDir::TempDir(const std::string& prefix) {
    std::error_code error;
    std::string pattern =
        (std::filesystem::temp_directory_path(error) / (prefix + "-XXXXXX")).string();
    if (!error && mkdtemp(pattern.data()) != nullptr) mPath = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
}

bool writeTextFile(const std::string& path, const std::string& text) {
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
}

std::string programDir() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string(".") : program.parent_path().string();
}

}  // namespace bench
