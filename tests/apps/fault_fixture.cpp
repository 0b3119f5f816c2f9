#include "tests/apps/fault_fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <thread>
#include <utility>

namespace apps_test {

const char* const kSentinel = "GUI_SETFILE(99)";
const char* const kSentinelReply = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)";

namespace {

constexpr milliseconds kSettleBound{10000};
constexpr milliseconds kSettleStep{20};

// One of each kind of answer on the default devices, an acquisition among them, so that a session
// or acquisition thread left in a bad state shows up here.
const std::pair<const char*, const char*> kCleanExchange[] = {
    {"GUI_ISRUNNING(0)", "NO"},
    {"FOO()", "ERROR: UNKNOWN COMMAND"},
    {"START(0,1,0,,10)", "OK"},
    {"GUI_ISRUNNING(99)", "ERROR: INVALID DEVICE INDEX"},
};

}  // namespace

PortBlocker::PortBlocker(int port) : mFd(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    mListening =
        bind(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && listen(mFd, 1) == 0;
}

PortBlocker::~PortBlocker() {
    close(mFd);
}

std::string cannotListenMessage(int port) {
    return "Could not start the remote server at port " + std::to_string(port);
}

bool isWellFormedReply(const std::string& line) {
    return line == "OK" || line == "YES" || line == "NO" || line.compare(0, 7, "ERROR: ") == 0;
}

::testing::AssertionResult FaultTest::startMeasured(const std::vector<std::string>& extra) {
    ::testing::AssertionResult serving = startServing(extra);
    if (!serving) return serving;
    // A served command shows that the probe's session is over; once this client has seen the
    // server close, the server's end of it is closed too.
    RawClient client;
    std::string line;
    if (!client.connect(mPort, kReplyBound) || !client.sendLine("GUI_ISRUNNING(0)") ||
        !client.readLine(line, kReplyBound) || !quitSession(client))
        return ::testing::AssertionFailure() << "the first session failed; stderr:\n"
                                             << hostStderr();
    mIdleDescriptors = openDescriptorCount(mHost.pid());
    mIdleThreads = threadCount(mHost.pid());
    if (mIdleDescriptors < 0 || mIdleThreads < 0)
        return ::testing::AssertionFailure() << "cannot read /proc for znhost";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult FaultTest::waitForIdleCounts() const {
    auto deadline = std::chrono::steady_clock::now() + kSettleBound;
    int descriptors = -1;
    int threads = -1;
    for (;;) {
        descriptors = openDescriptorCount(mHost.pid());
        threads = threadCount(mHost.pid());
        if (descriptors == mIdleDescriptors && threads == mIdleThreads)
            return ::testing::AssertionSuccess();
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(kSettleStep);
    }
    return ::testing::AssertionFailure()
           << "znhost has " << descriptors << " descriptors and " << threads
           << " threads; idle it had " << mIdleDescriptors << " and " << mIdleThreads;
}

::testing::AssertionResult FaultTest::servesCleanly() {
    RawClient client;
    if (!client.connect(mPort, kReplyBound))
        return ::testing::AssertionFailure() << "cannot connect; stderr:\n" << hostStderr();
    std::string line;
    for (const auto& exchange : kCleanExchange) {
        if (!client.sendLine(exchange.first) || !client.readLine(line, kReplyBound))
            return ::testing::AssertionFailure() << "no reply to " << exchange.first;
        if (line != exchange.second)
            return ::testing::AssertionFailure() << exchange.first << " got \"" << line
                                                 << "\", not \"" << exchange.second << "\"";
    }
    return quitSession(client);
}

::testing::AssertionResult FaultTest::readUntilSentinel(RawClient& client,
                                                        std::vector<std::string>& before) const {
    if (!client.sendLine(kSentinel))
        return ::testing::AssertionFailure() << "cannot send the sentinel";
    std::string line;
    while (client.readLine(line, kReplyBound)) {
        if (line == kSentinelReply) return ::testing::AssertionSuccess();
        before.push_back(line);
    }
    return ::testing::AssertionFailure()
           << "no reply to the sentinel after " << before.size() << " lines";
}

::testing::AssertionResult FaultTest::quitSession(RawClient& client) {
    if (!client.sendLine("QUIT()") || !client.waitForClose(kReplyBound))
        return ::testing::AssertionFailure() << "QUIT() did not end the session";
    return ::testing::AssertionSuccess();
}

void FaultTest::expectStopsCleanly(const std::string& what) {
    auto signalled = std::chrono::steady_clock::now();
    mHost.sendSignal(SIGTERM);
    ASSERT_TRUE(mHost.waitForExit(kStopBound)) << "znhost did not stop; stderr:\n" << hostStderr();
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - signalled;
    std::printf("[ stop     ] %s: znhost exited %.2f s after SIGTERM\n", what.c_str(),
                took.count());
    std::fflush(stdout);
    EXPECT_EQ(mHost.exitCode(), 0) << "stderr:\n" << hostStderr();
    std::vector<std::string> out = splitLines(hostStdout());
    EXPECT_TRUE(!out.empty() && out.back() == "closed") << hostStdout();
}

void FaultTest::expectRecoveredAndStops() {
    ASSERT_TRUE(hostAlive()) << "znhost ended; stderr:\n" << hostStderr();
    EXPECT_TRUE(servesCleanly());
    EXPECT_TRUE(waitForIdleCounts());
    expectStopsCleanly(::testing::UnitTest::GetInstance()->current_test_info()->name());
}

}  // namespace apps_test
