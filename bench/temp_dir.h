// A scratch directory in the system temporary folder that is removed, with its contents, on
// destruction. path() is empty when it could not be created.
#pragma once

#include <string>

namespace bench {

class TempDir {
public:
    explicit TempDir(const std::string& prefix);
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

// Writes `text` to `path`, replacing the file; false on failure.
bool writeTextFile(const std::string& path, const std::string& text);

// The directory that holds the running program, without a trailing '/'.
std::string programDir();

}  // namespace bench
