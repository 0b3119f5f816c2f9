// The fault tests' znhost: the per-test host of ZnhostTest plus what every fault test checks once
// the abuse is over. A host has recovered when its open descriptors and threads are back at the
// counts it had while idle (so no session, acquisition thread or connection was leaked), a new
// client gets exact replies, and SIGTERM still ends it with status 0 (under the sanitizer builds
// that status also says that no leak or race was reported).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/apps/proc_stats.h"
#include "tests/apps/znhost_fixture.h"

namespace apps_test {

// The longest a stop may take: znhost promises 2 s; the bound allows three times that.
constexpr milliseconds kStopBound{6000};

// Sent after the commands under test, its reply must be the next line: anything a command should
// not have answered shows up in front of it.
extern const char* const kSentinel;
extern const char* const kSentinelReply;

class FaultTest : public ZnhostTest {
protected:
    // startServing, one complete session, then the idle descriptor and thread counts are taken.
    ::testing::AssertionResult startMeasured(const std::vector<std::string>& extra = {});
    // Polls (bounded) until both counts are back at their idle values.
    ::testing::AssertionResult waitForIdleCounts() const;
    // A new client sends a fixed set of commands, gets exactly their replies, and leaves.
    ::testing::AssertionResult servesCleanly();
    // Reads lines until the sentinel's reply and returns the lines before it.
    ::testing::AssertionResult readUntilSentinel(RawClient& client,
                                                 std::vector<std::string>& before) const;
    // QUIT() and a bounded wait for the server's close: the session is over on both sides.
    static ::testing::AssertionResult quitSession(RawClient& client);
    // SIGTERM and a wait bounded by kStopBound; prints how long the stop took, and expects status
    // 0 and "closed" as the last line of standard output.
    void expectStopsCleanly(const std::string& what);
    // The end of every fault test: clean service, idle counts, and a clean stop.
    void expectRecoveredAndStops();

    bool hostAlive() { return !mHost.waitForExit(milliseconds(0)); }
    long hostPeakKb() const { return peakResidentKb(mHost.pid()); }

    int mIdleDescriptors = -1;
    int mIdleThreads = -1;
};

// A listening socket on 127.0.0.1:port, so that the plug-in cannot listen there; closed when the
// object goes.
class PortBlocker {
public:
    explicit PortBlocker(int port);
    ~PortBlocker();
    PortBlocker(const PortBlocker&) = delete;
    PortBlocker& operator=(const PortBlocker&) = delete;

    bool listening() const { return mListening; }

private:
    int mFd;
    bool mListening = false;
};

// What the plug-in logs when it cannot listen on `port`.
std::string cannotListenMessage(int port);

// A reply line as the protocol allows it: "OK", "YES", "NO" or an "ERROR: " line.
bool isWellFormedReply(const std::string& line);

}  // namespace apps_test
