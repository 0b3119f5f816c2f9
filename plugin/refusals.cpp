#include "plugin/refusals.h"

namespace PluginRemoteCtrl {

namespace {

constexpr const char* kOtherAddresses = "other addresses";

}  // namespace

std::string RefusalLog::refused(const std::string& address, double now) {
    const std::string key = keyFor(address, now);
    auto found = mEntries.find(key);
    if (found != mEntries.end() && now - found->second.loggedAt < kWindowSeconds) {
        ++found->second.heldBack;
        return "";
    }
    const unsigned long heldBack = found == mEntries.end() ? 0 : found->second.heldBack;
    mEntries[key] = Entry{now, 0};
    std::string line = "Refused connection from " + address;
    if (heldBack > 0)
        line += " (" + std::to_string(heldBack) + " more from " + key + " not logged)";
    return line;
}

// Entries whose window has passed with nothing held back say nothing more: they go first.
std::string RefusalLog::keyFor(const std::string& address, double now) {
    if (mEntries.count(address) != 0 || mEntries.size() < kTrackedAddresses) return address;
    for (auto entry = mEntries.begin(); entry != mEntries.end();) {
        const bool spent =
            now - entry->second.loggedAt >= kWindowSeconds && entry->second.heldBack == 0;
        entry = spent ? mEntries.erase(entry) : std::next(entry);
    }
    return mEntries.size() < kTrackedAddresses ? address : kOtherAddresses;
}

}  // namespace PluginRemoteCtrl
