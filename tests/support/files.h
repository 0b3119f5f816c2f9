// File helpers for tests that prepare inputs on disk or read what the code under test wrote.
#pragma once

#include <string>
#include <vector>

#include "tests/support/bounds.h"

namespace testsupport {

void writeFile(const std::string& path, const std::string& text);
// The whole file, or "" when it cannot be read.
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
// Entries of a folder; threads of this process are the entries of /proc/self/task.
long entryCount(const std::string& folder);
std::vector<std::string> splitLines(const std::string& text);

// Polls `path` until it contains `text`; false when `bound` passes first.
bool waitForFileText(const std::string& path, const std::string& text, milliseconds bound);

}  // namespace testsupport
