#include "tests/support/files.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace testsupport {

namespace {

using Clock = std::chrono::steady_clock;
constexpr milliseconds kPollStep{10};

}  // namespace

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

bool waitForFileText(const std::string& path, const std::string& text, milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        if (readFile(path).find(text) != std::string::npos) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kPollStep);
    }
}

long entryCount(const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

}  // namespace testsupport
