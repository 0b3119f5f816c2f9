// Refused connections in the host log, bounded: at most one line per address per window (10 s),
// and that line counts the refusals of the address that were not logged since its last line. At
// most kTrackedAddresses addresses are remembered; refusals from further addresses share one
// entry, so a flood from many addresses cannot grow memory or the log without bound.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace PluginRemoteCtrl {

class RefusalLog {
public:
    static constexpr double kWindowSeconds = 10.0;
    static constexpr size_t kTrackedAddresses = 1024;

    // The line to log for a refusal of `address` at `now` (seconds, any monotonic origin), or ""
    // when it is held back.
    std::string refused(const std::string& address, double now);

private:
    struct Entry {
        double loggedAt;
        unsigned long heldBack;
    };
    std::string keyFor(const std::string& address, double now);

    std::map<std::string, Entry> mEntries;
};

}  // namespace PluginRemoteCtrl
