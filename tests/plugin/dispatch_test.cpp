// Command dispatch: START validation and its reply texts, STOP, unknown names, the acquisition
// thread and its interplay with the session.
#include <chrono>
#include <thread>

#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

using DispatchTest = PluginTest;

struct ReplyCase {
    const char* command;
    const char* reply;  // "" for a command that sends nothing
};

TEST_F(DispatchTest, RefusedStartsAndUnknownNamesWhileIdle) {
    dev0.minThreshold = 5.0;
    dev0.maxThreshold = 50.0;
    dev1.minThreshold = -1.0;
    dev1.maxThreshold = 10.0;
    const ReplyCase cases[] = {
        {"START()", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)"},
        {"START(0,1,1,f)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)"},
        {"START(0,1,1,f,10,x)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)"},
        {"START(abc,1,1,f,10)", "ERROR: INVALID DEVICE INDEX"},
        {"START(,1,1,f,10)", "ERROR: INVALID DEVICE INDEX"},
        {"START(-1,1,1,f,10)", "ERROR: INVALID DEVICE INDEX"},
        {"START(2,1,1,f,10)", "ERROR: INVALID DEVICE INDEX"},
        {"START(x,y,z,f,w)", "ERROR: INVALID DEVICE INDEX"},
        {"START(0,-1,1,f,10)", "ERROR: INVALID ACQ COUNT"},
        {"START(0,3000000000,1,f,10)", "ERROR: INVALID ACQ COUNT"},
        {"START(0,many,1,f,10)", "ERROR: INVALID ACQ COUNT"},
        {"START(0,1,-0.5,f,10)", "ERROR: INVALID ACQ TIME"},
        {"START(0,1,soon,f,10)", "ERROR: INVALID ACQ TIME"},
        {"START(0,1,1,f,50)", "ERROR: INVALID THL"},    // the maximum is excluded
        {"START(0,1,1,f,4.9)", "ERROR: INVALID THL"},   // below the minimum
        {"START(0,1,1,f,high)", "ERROR: INVALID THL"},  // does not convert: -1.0
        {"START(1,1,1,f,-0.5)", "ERROR: INVALID THL"},  // negative, though inside the range
        {"FOO()", "ERROR: UNKNOWN COMMAND"},
        {"STOP()", ""},
        {"stop(1,2)", ""},
    };
    start();
    for (const ReplyCase& c : cases)
        EXPECT_EQ(client.exchange(c.command), c.reply) << c.command;
    EXPECT_TRUE(dev0.calls().empty());
    EXPECT_TRUE(dev0.thresholds().empty());
}

TEST_F(DispatchTest, AcceptedStartRepliesOnlyWhenTheAcquisitionEnds) {
    start();
    EXPECT_EQ(client.acquire("start(1x,2.9,0.5,run.txt,10)"), "OK");
    auto calls = dev1.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].count, 2);
    EXPECT_EQ(calls[0].time, 0.5);
    EXPECT_EQ(calls[0].flag, 1);
    EXPECT_EQ(calls[0].fileName, "run.txt");
    auto thresholds = dev1.thresholds();
    ASSERT_EQ(thresholds.size(), 1u);
    EXPECT_EQ(thresholds[0].selector, 0);
    EXPECT_EQ(thresholds[0].kind, 2);
    EXPECT_EQ(thresholds[0].value, 10.0);
    EXPECT_EQ(host.lastFilter, 1);
}

TEST_F(DispatchTest, EdgeValuesAreAccepted) {
    const ReplyCase cases[] = {
        {"START(0,0,0,,0)", "OK"},             // count 0, time 0, empty file, minimum
        {"Start(0,1,0,\"a, b\",99.5)", "OK"},  // quoted file name
        {"START( 1 ,1,0,f, 0 )", "OK"},
    };
    start();
    for (const ReplyCase& c : cases)
        EXPECT_EQ(client.acquire(c.command), c.reply) << c.command;
    EXPECT_EQ(dev0.calls().at(1).fileName, "a,b");
}

TEST_F(DispatchTest, RefusalsByTheDevice) {
    dev0.setThresholdResult = 3;
    dev1.reportsRange = false;  // range 0 to 0 refuses every threshold
    start();
    EXPECT_EQ(client.exchange("START(0,1,0,f,1)"), "ERROR: FAILED SETTING THL");
    EXPECT_EQ(client.exchange("START(1,1,0,f,0)"), "ERROR: INVALID THL");
    dev0.setThresholdResult = 0;
    dev0.acqResult = 7;
    EXPECT_EQ(client.acquire("START(0,1,0,f,1)"), "ERROR: ACQUISITION FAILED");
}

TEST_F(DispatchTest, StartUsesTheFilteredListAndGuiCommandsTheFullOne) {
    host.filtered = {&dev1};
    start();
    EXPECT_EQ(client.exchange("START(1,1,0,f,1)"), "ERROR: INVALID DEVICE INDEX");
    EXPECT_EQ(client.acquire("START(0,1,0,f,1)"), "OK");
    EXPECT_EQ(dev1.calls().size(), 1u);
    EXPECT_TRUE(dev0.calls().empty());
    EXPECT_EQ(client.exchange("GUI_START(0)"), "");
    EXPECT_EQ(host.devControl.calls().back(), "start dev0");
}

TEST_F(DispatchTest, WhileRunningOnlyStartIsAnsweredAndStopAborts) {
    dev0.blocking = true;
    start();
    EXPECT_EQ(client.exchange("START(0,5,1,f,1)"), "");
    ASSERT_TRUE(dev0.waitUntilRunning());
    EXPECT_EQ(client.exchange("START(1,1,1,f,1)"), "ERROR: ACQ ALREADY RUNNING");
    EXPECT_EQ(client.exchange("START()"), "ERROR: ACQ ALREADY RUNNING");
    EXPECT_EQ(client.exchange("FOO()"), "");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(1)"), "NO");  // served while acquiring
    client.send("STOP()");
    EXPECT_EQ(client.reply(), "ERROR: ACQUISITION FAILED");  // the device's abort result is -1
    EXPECT_EQ(dev0.aborts(), 1);
    EXPECT_EQ(client.exchange("FOO()"), "ERROR: UNKNOWN COMMAND");  // idle again
}

TEST_F(DispatchTest, AbortedAcquisitionWithSuccessResultRepliesOk) {
    dev0.blocking = true;
    dev0.abortResult = 0;
    start();
    client.send("START(0,5,1,f,1)");
    ASSERT_TRUE(dev0.waitUntilRunning());
    client.send("STOP()");
    EXPECT_EQ(client.reply(), "OK");
}

TEST_F(DispatchTest, StartSentTheMomentOkArrivesIsAccepted) {
    start();
    client.send("START(0,1,0,f,1)");
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(client.reply(), "OK") << "round " << i;
        client.send("START(0,1,0,f,1)");
    }
    EXPECT_EQ(client.reply(), "OK");
}

TEST_F(DispatchTest, ReplyOfAnAcquisitionWhoseClientLeftIsDroppedAndTheNextClientCanStart) {
    dev0.blocking = true;
    start();
    client.send("START(0,1,1,f,1)");
    ASSERT_TRUE(dev0.waitUntilRunning());
    client.send("QUIT()");
    EXPECT_EQ(client.reply(), "<closed>");
    dev0.release();
    dev0.blocking = false;
    Client next;
    ASSERT_TRUE(next.connect(port));
    // Depending on timing the first START may still find the old acquisition finishing.
    std::string reply;
    for (int i = 0; i < 50; ++i) {
        reply = next.acquire("START(0,1,0,f,1)");
        if (reply != "ERROR: ACQ ALREADY RUNNING") break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(reply, "OK");
}

TEST_F(DispatchTest, ClientVanishingMidAcquisitionDoesNotHurtTheServer) {
    dev0.blocking = true;
    start();
    client.send("START(0,1,1,f,1)");
    ASSERT_TRUE(dev0.waitUntilRunning());
    client.close();  // no QUIT: the connection just goes away
    dev0.release();
    Client next;
    ASSERT_TRUE(next.connect(port));
    // The acquisition's reply goes to whichever client is connected when it ends: this one, if
    // the server took it on before the acquisition thread got to send.
    std::string replies = next.exchange("GUI_ISRUNNING(0)");
    EXPECT_TRUE(replies == "NO" || replies == "OK|NO") << replies;
}

}  // namespace
}  // namespace testhost
