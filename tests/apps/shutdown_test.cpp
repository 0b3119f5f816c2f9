// Stopping znhost in awkward states: SIGTERM during an acquisition, during an idle session and with
// a second client waiting in the listen queue; and a port that another listener holds. znhost
// must exit with status 0 and close every connection.
#include <signal.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/apps/fault_fixture.h"

namespace apps_test {
namespace {

enum class AtSignal { Acquisition, IdleSession, ClientInBacklog };

struct SignalCase {
    const char* name;
    AtSignal state;
};

// Rows print as their name in test listings.
void PrintTo(const SignalCase& row, std::ostream* out) {
    *out << row.name;
}

class SigtermTest : public FaultTest, public ::testing::WithParamInterface<SignalCase> {};

TEST_P(SigtermTest, ExitsZeroAndClosesEveryConnection) {
    ASSERT_TRUE(startServing({"--trace"}));
    RawClient first;
    RawClient second;
    ASSERT_TRUE(first.connect(mPort, kReplyBound));
    std::string line;
    if (GetParam().state == AtSignal::Acquisition) {
        ASSERT_TRUE(first.sendLine("START(0,1,600,run.txt,10)"));
        ASSERT_TRUE(waitForHostStderr("runAcquisition(1, 600, 1, \"run.txt\")")) << hostStderr();
    } else {
        // A reply shows that this client's session, not the probe's, is the one being served.
        ASSERT_TRUE(first.sendLine("GUI_ISRUNNING(0)"));
        ASSERT_TRUE(first.readLine(line, kReplyBound));
    }
    if (GetParam().state == AtSignal::ClientInBacklog) {
        ASSERT_TRUE(second.connect(mPort, kReplyBound));
        ASSERT_TRUE(second.sendLine("GUI_ISRUNNING(0)"));
    }
    expectStopsCleanly(GetParam().name);
    EXPECT_TRUE(first.waitForClose(kReplyBound));
    if (GetParam().state == AtSignal::ClientInBacklog) {
        EXPECT_FALSE(second.readLine(line, kReplyBound)) << "a waiting client was served: " << line;
    }
}

const SignalCase kSignalCases[] = {
    {"during_acquisition", AtSignal::Acquisition},
    {"during_idle_session", AtSignal::IdleSession},
    {"second_client_in_backlog", AtSignal::ClientInBacklog},
};

INSTANTIATE_TEST_SUITE_P(Rows, SigtermTest, ::testing::ValuesIn(kSignalCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(FaultTest, PortHeldByAnotherListenerIsLoggedAndStopStillReturns) {
    PortBlocker blocker(mPort);
    ASSERT_TRUE(blocker.listening());
    ASSERT_TRUE(startHost());
    EXPECT_TRUE(waitForHostStderr("[remotectrl] " + cannotListenMessage(mPort) + "\n"))
        << hostStderr();
    ASSERT_TRUE(hostAlive());
    // The server never listened, so onClose waits out its whole time-out.
    expectStopsCleanly("port held by another listener");
}

TEST_F(FaultTest, PortHeldByAnotherZnhost) {
    ASSERT_TRUE(startMeasured());
    ChildProcess other;
    const std::string out = mTemp.file("other.out");
    const std::string err = mTemp.file("other.err");
    ASSERT_TRUE(other.start({ZNHOST_PATH, "--settings-dir", mSettingsDir, "--data-dir", mDataDir},
                            out, err));
    EXPECT_TRUE(
        waitForFileText(err, "[remotectrl] " + cannotListenMessage(mPort) + "\n", kStartBound))
        << readFile(err);
    EXPECT_TRUE(servesCleanly()) << "the first host no longer serves";
    other.sendSignal(SIGTERM);
    ASSERT_TRUE(other.waitForExit(kStopBound)) << "the second znhost did not stop";
    EXPECT_EQ(other.exitCode(), 0) << readFile(err);
    expectRecoveredAndStops();
}

}  // namespace
}  // namespace apps_test
