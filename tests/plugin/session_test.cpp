// The server loop and the client session over real loopback connections: what ends a session,
// how clients queue, and how the server stops.

#include <chrono>
#include <thread>

#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

using SessionTest = PluginTest;

TEST_F(SessionTest, LinesThatEndTheSessionWithoutReply) {
    const char* endings[] = {"QUIT()\n", "QUIT()\r\n", "QUIT()   \n", "\n", "   \n", "\r\n"};
    start();
    for (const char* ending : endings) {
        client.sendRaw(ending);
        EXPECT_EQ(client.reply(), "<closed>") << "line " << ending;
        ASSERT_TRUE(client.connect(port));
    }
}

TEST_F(SessionTest, QuitWithBlankOrInLowerCaseIsAnUnknownCommand) {
    start();
    EXPECT_EQ(client.exchange(" QUIT()"), "ERROR: UNKNOWN COMMAND");
    EXPECT_EQ(client.exchange("quit()"), "ERROR: UNKNOWN COMMAND");
    EXPECT_EQ(client.exchange("QUIT"), "");  // no "(": ignored
}

TEST_F(SessionTest, PeerCloseAfterAnUnterminatedCommandStillRunsIt) {
    start();
    client.sendRaw("GUI_START(0)\nGUI_STOP(1)");
    client.socket().shutdownBoth();
    client.close();
    Client next;
    ASSERT_TRUE(next.connect(port));
    EXPECT_EQ(next.exchange("GUI_ISRUNNING(0)"), "YES");
    auto calls = host.devControl.calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0], "start dev0");
    EXPECT_EQ(calls[1], "stop dev1");
}

TEST_F(SessionTest, SecondClientIsServedAfterTheFirstLeaves) {
    start();
    Client second;
    ASSERT_TRUE(second.connect(port));  // completes in the listen backlog
    second.send("GUI_ISRUNNING(0)");
    EXPECT_EQ(second.reply(0.5), "<timeout>");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(1)"), "NO");
    client.send("QUIT()");
    EXPECT_EQ(second.reply(), "NO");
}

TEST_F(SessionTest, TokenizerFailureIsAnsweredAndTheSessionGoesOn) {
    start();
    EXPECT_EQ(client.exchange("A(\")"), "ERROR: INVALID COMMAND SYNTAX");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
}

TEST_F(SessionTest, PartialLineDroppedByTheReadTimeOutIsNotProcessed) {
    start();
    client.sendRaw("GUI_STA");
    // The read that holds "GUI_STA" gives up one line time-out (1 s) after it arrived.
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    client.sendRaw("RT(0)\n");
    // Had the partial text been kept, the line would be "GUI_START(0)" and silent.
    EXPECT_EQ(client.reply(), "ERROR: UNKNOWN COMMAND");
    EXPECT_TRUE(host.devControl.calls().empty());
}

TEST_F(SessionTest, CloseWhileWaitingInAcceptReturnsPromptly) {
    ASSERT_EQ(plugin.initialize(&host), 0);
    ASSERT_TRUE(client.connect(port));
    client.send("QUIT()");
    EXPECT_EQ(client.reply(), "<closed>");
    auto begin = Clock::now();
    plugin.onClose();
    EXPECT_LT(secondsSince(begin), 0.6);  // one poll interval, with a wide margin
    Client late;
    EXPECT_FALSE(late.connect(port, 1) && late.exchange("GUI_ISRUNNING(0)") == "NO");
}

TEST_F(SessionTest, CloseWithAnIdleClientReturnsPromptlyAndEndsTheSession) {
    start();
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
    auto begin = Clock::now();
    plugin.onClose();
    started = false;
    EXPECT_LT(secondsSince(begin), 0.6);
    EXPECT_EQ(client.reply(), "<closed>");
}

TEST_F(SessionTest, CloseAbortsARunningAcquisitionAndWaitsForIt) {
    dev0.blocking = true;
    start();
    client.send("START(0,1,1,f.txt,1)");
    ASSERT_TRUE(dev0.waitUntilRunning());
    auto begin = Clock::now();
    plugin.onClose();
    started = false;
    EXPECT_LT(secondsSince(begin), 0.6);
    EXPECT_EQ(dev0.aborts(), 1);
}

TEST_F(SessionTest, SecondInitializeAfterCloseDoesNothing) {
    start();
    client.close();
    plugin.onClose();
    started = false;
    int threadsBefore = threadCount();
    EXPECT_EQ(plugin.initialize(&host), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(threadCount(), threadsBefore);
    Client late;
    EXPECT_FALSE(late.connect(port, 1) && late.exchange("GUI_ISRUNNING(0)") == "NO");
}

TEST_F(SessionTest, PortInUseIsLoggedOnceWithTheWholeValue) {
    TCPServerSocket holder;
    ASSERT_EQ(holder.startServer(0, 1), 0);
    int taken = holder.getLocalPort();
    // Only the low 16 bits reach the socket; the message shows the configured number.
    writeFile(settingsDir.path() + "/remotectrl.ini",
              "[Settings]\nPort=" + std::to_string(65536 + taken) + "\n");
    ASSERT_EQ(plugin.initialize(&host), 0);
    started = true;
    std::vector<std::string> lines;
    for (int i = 0; i < 100 && lines.empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        lines = host.logLines();
    }
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "remotectrl|0|Could not start the remote server at port " +
                            std::to_string(65536 + taken));
}

}  // namespace
}  // namespace testhost
