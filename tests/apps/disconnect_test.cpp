// Clients that leave at the worst moments: while their acquisition runs, while replies are on their
// way, halfway through a line, and five hundred times in a row. znhost must keep serving, and
// close every connection it accepted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/apps/fault_fixture.h"

namespace apps_test {
namespace {

enum class Leave { Close, Reset };

struct VanishCase {
    const char* name;
    std::string sent;    // what the client sends before it leaves
    const char* traced;  // a trace line that shows the server has got that far, or nullptr
    int repliesRead;     // reply lines the client reads before it leaves
    Leave leave;
    bool acquisitionOutlives;  // the client's acquisition still runs; the next client stops it
};

// Rows print as their name in test listings.
void PrintTo(const VanishCase& row, std::ostream* out) {
    *out << row.name;
}

// Each reply is longer than its command, so the replies to a burst outgrow the socket buffers and
// the server is still sending when the client goes.
std::string replyBurst() {
    std::string burst;
    for (int i = 0; i < 5000; ++i)
        burst += "START()\n";
    return burst;
}

const char* const kLongRun = "runAcquisition(1, 600, 1, \"\")";
const char* const kShortRun = "runAcquisition(1, 0.3, 1, \"\")";

const VanishCase kVanishCases[] = {
    {"acquisition_running_close", "START(0,1,600,,10)\n", kLongRun, 0, Leave::Close, true},
    {"acquisition_running_reset", "START(0,1,600,,10)\n", kLongRun, 0, Leave::Reset, true},
    {"acquisition_ends_without_client", "START(0,1,0.3,,10)\n", kShortRun, 0, Leave::Close, false},
    {"replies_being_sent_close", replyBurst(), nullptr, 1, Leave::Close, false},
    {"replies_being_sent_reset", replyBurst(), nullptr, 1, Leave::Reset, false},
    {"halfway_through_a_line_close", "GUI_ISRUNNING(0", nullptr, 0, Leave::Close, false},
    {"halfway_through_a_line_reset", "GUI_ISRUNNING(0", nullptr, 0, Leave::Reset, false},
};

class VanishTest : public FaultTest, public ::testing::WithParamInterface<VanishCase> {};

TEST_P(VanishTest, HostKeepsServingAndLeaksNothing) {
    const VanishCase& row = GetParam();
    ASSERT_TRUE(startMeasured({"--trace"}));
    {
        RawClient leaving;
        ASSERT_TRUE(leaving.connect(mPort, kReplyBound));
        ASSERT_TRUE(leaving.sendText(row.sent));
        if (row.traced != nullptr) {
            ASSERT_TRUE(waitForHostStderr(row.traced)) << hostStderr();
        }
        std::string line;
        for (int i = 0; i < row.repliesRead; ++i)
            ASSERT_TRUE(leaving.readLine(line, kReplyBound));
        row.leave == Leave::Reset ? leaving.abort() : leaving.close();
    }
    if (row.acquisitionOutlives) {
        // The acquisition's reply goes to whoever is connected when it ends.
        RawClient next;
        ASSERT_TRUE(next.connect(mPort, kReplyBound));
        EXPECT_EQ(next.request("STOP()", kReplyBound), "ERROR: ACQUISITION FAILED");
        EXPECT_TRUE(quitSession(next));
    }
    EXPECT_TRUE(waitForIdleCounts());
    expectRecoveredAndStops();
}

INSTANTIATE_TEST_SUITE_P(Rows, VanishTest, ::testing::ValuesIn(kVanishCases),
                         [](const auto& info) { return std::string(info.param.name); });

// A connection that ends without a line feed still has its last text carried out.
TEST_F(FaultTest, UnterminatedLastLineIsCarriedOutBeforeTheSessionEnds) {
    ASSERT_TRUE(startMeasured());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    ASSERT_TRUE(client.sendText("GUI_ISRUNNING(1)"));
    ASSERT_TRUE(client.finishSending());
    std::string line;
    ASSERT_TRUE(client.readLine(line, kReplyBound));
    EXPECT_EQ(line, "NO");
    EXPECT_TRUE(client.waitForClose(kReplyBound));
    expectRecoveredAndStops();
}

TEST_F(FaultTest, FiveHundredConnectDisconnectCycles) {
    ASSERT_TRUE(startMeasured());
    for (int cycle = 0; cycle < 500; ++cycle) {
        RawClient client;
        ASSERT_TRUE(client.connect(mPort, kReplyBound)) << "cycle " << cycle;
        // Every other cycle waits for the server's close, so at most one unserved connection
        // waits in the listen queue (whose backlog is 5) and no connect has to be retried.
        switch (cycle % 4) {
            case 0:
                ASSERT_TRUE(client.sendLine("QUIT()"));
                ASSERT_TRUE(client.waitForClose(kReplyBound)) << "cycle " << cycle;
                break;
            case 1:
                client.close();
                break;
            case 2:
                ASSERT_TRUE(client.sendLine(""));
                ASSERT_TRUE(client.waitForClose(kReplyBound)) << "cycle " << cycle;
                break;
            case 3:
                client.abort();
                break;
        }
    }
    EXPECT_TRUE(waitForIdleCounts());
    expectRecoveredAndStops();
}

}  // namespace
}  // namespace apps_test
