#include "apps/znhost/listeners.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

namespace znhost {

namespace {

constexpr std::chrono::milliseconds kPollStep{20};
constexpr const char* kListenState = "0A";
constexpr const char* kSocketLinkPrefix = "socket:[";
constexpr size_t kHexWordDigits = 8;

std::set<std::string> ownSocketInodes() {
    std::set<std::string> inodes;
    DIR* folder = ::opendir("/proc/self/fd");
    if (folder == nullptr) return inodes;
    const size_t prefixLength = std::strlen(kSocketLinkPrefix);
    while (dirent* entry = ::readdir(folder)) {
        char target[PATH_MAX];
        std::string link = std::string("/proc/self/fd/") + entry->d_name;
        ssize_t length = ::readlink(link.c_str(), target, sizeof target - 1);
        if (length <= 0) continue;
        std::string text(target, static_cast<size_t>(length));
        if (text.compare(0, prefixLength, kSocketLinkPrefix) == 0)
            inodes.insert(text.substr(prefixLength, text.size() - prefixLength - 1));
    }
    ::closedir(folder);
    return inodes;
}

// The kernel prints an address as 32-bit words in hex, each in the machine's byte order, so
// reading each word back as a number restores the bytes as they lie in memory.
std::string addressText(const std::string& hexAddress, bool v6) {
    unsigned char bytes[16] = {};
    for (size_t word = 0; word * kHexWordDigits < hexAddress.size() && word < 4; ++word) {
        uint32_t value = static_cast<uint32_t>(
            std::stoul(hexAddress.substr(word * kHexWordDigits, kHexWordDigits), nullptr, 16));
        std::memcpy(bytes + word * sizeof value, &value, sizeof value);
    }
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(v6 ? AF_INET6 : AF_INET, bytes, text, sizeof text);
    return v6 ? "[" + std::string(text) + "]" : std::string(text);
}

void addListeners(const char* table, bool v6, const std::set<std::string>& inodes,
                  std::vector<std::string>& addresses) {
    std::ifstream in(table);
    std::string row;
    std::getline(in, row);  // the column titles
    while (std::getline(in, row)) {
        std::istringstream fields(row);
        std::string slot, local, remote, state, skipped, inode;
        fields >> slot >> local >> remote >> state;
        for (int column = 0; column < 5; ++column)
            fields >> skipped;  // queues, timers, retransmits, uid, time-out
        fields >> inode;
        size_t colon = local.find(':');
        if (!fields || state != kListenState || colon == std::string::npos || !inodes.count(inode))
            continue;
        unsigned long port = std::stoul(local.substr(colon + 1), nullptr, 16);
        addresses.push_back(addressText(local.substr(0, colon), v6) + ":" + std::to_string(port));
    }
}

}  // namespace

std::vector<std::string> ownListeningAddresses() {
    std::set<std::string> inodes = ownSocketInodes();
    std::vector<std::string> addresses;
    addListeners("/proc/net/tcp", false, inodes, addresses);
    addListeners("/proc/net/tcp6", true, inodes, addresses);
    return addresses;
}

std::vector<std::string> waitForListeners(size_t wanted, const std::function<bool()>& gaveUp,
                                          std::chrono::milliseconds bound) {
    auto deadline = std::chrono::steady_clock::now() + bound;
    std::vector<std::string> addresses = ownListeningAddresses();
    while (addresses.size() < wanted && !gaveUp() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kPollStep);
        addresses = ownListeningAddresses();
    }
    return addresses;
}

}  // namespace znhost
