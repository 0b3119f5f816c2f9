// The plug-in in-process behind a real loopback connection: every reply cause, the acquisition
// thread, the session loop, the settings and the life cycle.
#include <gtest/gtest.h>

#include <chrono>

#include "net/sockets.h"
#include "tests/plugin/plugin_fixture.h"
#include "tests/support/row_name.h"

namespace testhost {
namespace {

struct ReplyRow {
    const char* name;
    const char* command;
    const char* replies;         // joined by "|", "" for a silent command
    const char* devControlCall;  // the devcontrol call it makes, "" for none
};

// dev0's threshold range is [5, 100): the minimum included, the maximum excluded.
const ReplyRow kIdleReplies[] = {
    {"start_no_arguments", "START()", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)", ""},
    {"index_not_a_number", "START(abc,1,1,f,10)", "ERROR: INVALID DEVICE INDEX", ""},
    {"index_past_the_list", "START(2,1,1,f,10)", "ERROR: INVALID DEVICE INDEX", ""},
    {"count_negative", "START(0,-1,1,f,10)", "ERROR: INVALID ACQ COUNT", ""},
    {"time_negative", "START(0,1,-0.5,f,10)", "ERROR: INVALID ACQ TIME", ""},
    {"threshold_at_maximum", "START(0,1,1,f,100)", "ERROR: INVALID THL", ""},
    {"threshold_below_minimum", "START(0,1,1,f,4.9)", "ERROR: INVALID THL", ""},
    {"unknown_name", "FOO()", "ERROR: UNKNOWN COMMAND", ""},
    {"stop_while_idle", "STOP()", "", ""},
    {"syntax_error", "A(\")", "ERROR: INVALID COMMAND SYNTAX", ""},
    {"gui_start", "gui_start(1)", "", "start dev1"},
    {"gui_stop", "GUI_STOP(0)", "", "stop dev0"},
    {"gui_setfile", "GUI_SETFILE(1,\"a, b\")", "", "setFile dev1 a,b 1"},
    {"gui_isrunning", "GUI_ISRUNNING(0)", "NO", ""},
    {"gui_setfile_one_argument", "GUI_SETFILE(0)",
     "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)", ""},
};

class IdleReplyTest : public PluginTest, public ::testing::WithParamInterface<ReplyRow> {};

TEST_P(IdleReplyTest, AnswersAndCallsDevControl) {
    start();
    EXPECT_EQ(client.exchange(GetParam().command), GetParam().replies);
    const std::vector<std::string> calls = host.devControl.calls.lines();
    EXPECT_EQ(calls.empty() ? "" : calls.back(), GetParam().devControlCall);
    EXPECT_TRUE(dev0.calls.lines().empty() && dev1.calls.lines().empty())
        << "a refused START reached a device";
}

INSTANTIATE_TEST_SUITE_P(Rows, IdleReplyTest, ::testing::ValuesIn(kIdleReplies), RowName());

TEST_F(PluginTest, AcceptedStartSetsTheThresholdAndRepliesWhenTheAcquisitionEnds) {
    host.filtered = {&dev1};  // START counts in the filtered list, GUI_ commands in the full one
    start();
    EXPECT_EQ(client.exchange("start(0x,2.9,0.5,\"run, 1.txt\",5)"), "");
    EXPECT_EQ(client.nextFinal(), "OK");
    EXPECT_EQ(dev1.calls.lines(),
              (std::vector<std::string>{"threshold 0 2 5.000000", "2 0.500000 1 run,1.txt"}));
    EXPECT_EQ(client.exchange("START(1,1,0,f,10)"), "ERROR: INVALID DEVICE INDEX");
    dev1.setThresholdResult = 3;
    EXPECT_EQ(client.exchange("START(0,1,0,f,10)"), "ERROR: FAILED SETTING THL");
    dev1.setThresholdResult = 0;
    dev1.acqResult = 7;
    EXPECT_EQ(client.exchange("START(0,0,0,,99.5)"), "");
    EXPECT_EQ(client.nextFinal(), "ERROR: ACQUISITION FAILED");
}

TEST_F(PluginTest, WhileAcquiringOnlyStartIsRefusedAndStopAborts) {
    dev0.blocking = true;
    start();
    EXPECT_EQ(client.exchange("START(0,5,1,f,10)"), "");
    ASSERT_TRUE(dev0.waitUntilRunning());
    EXPECT_EQ(client.exchange("START()"), "ERROR: ACQ ALREADY RUNNING");
    EXPECT_EQ(client.exchange("FOO()"), "");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(1)"), "NO");
    EXPECT_EQ(client.exchange("STOP()"), "");
    EXPECT_EQ(client.nextFinal(), "ERROR: ACQUISITION FAILED");  // the abort result is -1
    EXPECT_EQ(dev0.aborts, 1);
    EXPECT_EQ(client.exchange("FOO()"), "ERROR: UNKNOWN COMMAND");  // idle before the reply
    dev0.abortResult = 0;
    EXPECT_EQ(client.exchange("START(0,5,1,f,10)"), "");
    ASSERT_TRUE(dev0.waitUntilRunning());
    EXPECT_EQ(client.exchange("STOP()"), "");
    EXPECT_EQ(client.nextFinal(), "OK");
}

TEST_F(PluginTest, StartSentTheMomentOkArrivesIsAccepted) {
    start();
    for (int round = 0; round < 100; ++round)
        ASSERT_EQ(client.request("START(0,1,0,f,10)"), "OK") << "round " << round;
}

TEST_F(PluginTest, SessionEndsOnQuitOrAnEmptyLineAndTheNextClientIsServed) {
    start();
    for (const char* ending : {"QUIT()\r\n", "QUIT()   \n", "\n", "  \r\n"}) {
        ASSERT_TRUE(client.sendText(ending));
        EXPECT_TRUE(client.waitForClose(kReplyBound)) << ending;
        ASSERT_TRUE(client.connect(port, kStartBound));
    }
    Client waiting;  // completes in the listen backlog while the first client is served
    ASSERT_TRUE(waiting.connect(port, kStartBound));
    ASSERT_TRUE(waiting.sendLine("GUI_ISRUNNING(0)"));
    EXPECT_EQ(client.exchange("GUI_START(0)"), "");
    client.sendLine("QUIT()");
    std::string reply;
    EXPECT_TRUE(waiting.readLine(reply, kReplyBound));
    EXPECT_EQ(reply, "YES");
}

// A line ended by the peer's orderly close runs once; one cut off by a reset does not run.
TEST_F(PluginTest, AnUnterminatedLineRunsOnceOnCloseAndNeverOnReset) {
    start();
    for (const bool reset : {false, true}) {
        const size_t callsBefore = host.devControl.calls.lines().size();
        client.sendText("GUI_START(0)\nGUI_STOP(1)");
        // The reset comes once the server holds the cut-off text.
        ASSERT_TRUE(waitUntil([&] { return host.devControl.calls.lines().size() > callsBefore; }));
        reset ? client.abort() : client.close();
        ASSERT_TRUE(client.connect(port, kStartBound));
        EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "YES");
    }
    EXPECT_EQ(host.devControl.calls.lines(),
              (std::vector<std::string>{"start dev0", "stop dev1", "start dev0"}));
}

TEST_F(PluginTest, GuiCommandsCheckTheIndexBeforeDevControl) {
    host.devControlLoaded = false;
    start();
    EXPECT_EQ(client.exchange("GUI_START(5)"), "ERROR: INVALID DEVICE INDEX");
    EXPECT_EQ(client.exchange("GUI_START(0)"), "ERROR: UNEXPECTED ERROR");
    host.devControlLoaded = true;
    host.handle.interface = nullptr;
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "ERROR: UNEXPECTED ERROR");
}

// An object serves one cycle: initializing it again after onClose starts no server.
TEST_F(PluginTest, AClosedPluginStartsNoNewServer) {
    start();
    close();
    EXPECT_TRUE(client.waitForClose(kReplyBound));
    EXPECT_EQ(plugin.initialize(&host), 0);
    EXPECT_FALSE(client.connect(port, std::chrono::milliseconds(300)));
}

}  // namespace
}  // namespace testhost
