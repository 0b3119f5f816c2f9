// A scratch directory for one test: created fresh under the system temp folder, removed with
// everything in it when the object goes. path() is empty when it could not be created.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace testsupport {

class TempDir {
public:
    TempDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "remotectrl-test.XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) mPath = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

}  // namespace testsupport
