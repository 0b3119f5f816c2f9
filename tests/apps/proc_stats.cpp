#include "tests/apps/proc_stats.h"

#include <dirent.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace apps_test {

namespace {

std::string procPath(pid_t pid, const char* entry) {
    return (pid == 0 ? std::string("/proc/self/") : "/proc/" + std::to_string(pid) + "/") + entry;
}

int countEntries(const std::string& folder) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return -1;
    int count = 0;
    while (dirent* entry = readdir(dir))
        if (entry->d_name[0] != '.') ++count;
    closedir(dir);
    return count;
}

}  // namespace

int openDescriptorCount(pid_t pid) {
    return countEntries(procPath(pid, "fd"));
}

int threadCount(pid_t pid) {
    return countEntries(procPath(pid, "task"));
}

long peakResidentKb(pid_t pid) {
    std::ifstream status(procPath(pid, "status"));
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, 6, "VmHWM:") == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

}  // namespace apps_test
