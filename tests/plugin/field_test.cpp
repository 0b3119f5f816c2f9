// What a plug-in on a lab network needs beyond the command language: its settings for access
// control, bounded lines, slow lines, a port that frees up later, STOP right after START, replies
// that wait for a slow reader, and clients that read nothing.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <thread>

#include "net/sockets.h"
#include "plugin/refusals.h"
#include "tests/plugin/plugin_fixture.h"
#include "tests/support/row_name.h"

namespace testhost {
namespace {

using namespace std::chrono_literals;

TEST_F(PluginTest, AValueThatDoesNotParseLeavesNoServer) {
    writeSettings("AllowFrom=127.0.0.300\n");
    ASSERT_EQ(plugin.initialize(&host), 0);
    started = true;
    EXPECT_TRUE(waitForLog("remotectrl|0|Invalid setting AllowFrom: 127.0.0.300"));
    EXPECT_FALSE(client.connect(port, 300ms));
}

TEST_F(PluginTest, ClientsOutsideAllowFromAreRefusedBeforeAnyLine) {
    writeSettings("AllowFrom=127.0.0.2\n");
    start();  // from 127.0.0.1
    std::string reply;
    EXPECT_TRUE(client.readLine(reply, kReplyBound));
    EXPECT_EQ(reply, "ERROR: ACCESS DENIED");
    EXPECT_TRUE(client.waitForClose(kReplyBound));
    for (int again = 0; again < 3; ++again) {  // within the log's window: not logged
        ASSERT_TRUE(client.connect(port, kStartBound));
        EXPECT_TRUE(client.waitForClose(kReplyBound));
    }
    EXPECT_TRUE(waitForLog("remotectrl|0|Refused connection from 127.0.0.1"));
    Client allowed;
    ASSERT_TRUE(allowed.connect(port, kStartBound, {"127.0.0.1", "127.0.0.2"}));
    EXPECT_EQ(allowed.exchange("GUI_ISRUNNING(0)"), "NO");
    EXPECT_EQ(host.logged.lines().size(), 1u);
}

struct RefusalRow {
    const char* name;
    std::vector<std::pair<const char*, double>> refusals;  // address, seconds
    const char* lastLine;                                  // logged for the last refusal
};

const RefusalRow kRefusalRows[] = {
    {"first", {{"10.0.0.1", 0}}, "Refused connection from 10.0.0.1"},
    {"within_window", {{"10.0.0.1", 0}, {"10.0.0.1", 9.9}}, ""},
    {"other_address", {{"10.0.0.1", 0}, {"10.0.0.2", 1}}, "Refused connection from 10.0.0.2"},
    {"after_window_counts_the_held_back",
     {{"10.0.0.1", 0}, {"10.0.0.1", 1}, {"10.0.0.1", 2}, {"10.0.0.1", 10}},
     "Refused connection from 10.0.0.1 (2 more from 10.0.0.1 not logged)"},
};

class RefusalLogTest : public ::testing::TestWithParam<RefusalRow> {};

TEST_P(RefusalLogTest, LogsOneLinePerAddressAndWindow) {
    PluginRemoteCtrl::RefusalLog log;
    std::string line;
    for (const auto& [address, at] : GetParam().refusals)
        line = log.refused(address, at);
    EXPECT_EQ(line, GetParam().lastLine);
}

INSTANTIATE_TEST_SUITE_P(Rows, RefusalLogTest, ::testing::ValuesIn(kRefusalRows), RowName());

TEST(RefusalLog, StaysBoundedWhateverTheNumberOfAddresses) {
    PluginRemoteCtrl::RefusalLog log;
    int logged = 0;
    for (int i = 0; i < 3000; ++i)
        logged += !log.refused("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256), 0)
                       .empty();
    EXPECT_EQ(logged, static_cast<int>(PluginRemoteCtrl::RefusalLog::kTrackedAddresses) + 1);
}

TEST_F(PluginTest, ListensOnTheConfiguredAddressOnly) {
    writeSettings("Address=127.0.0.3\n");
    ASSERT_EQ(plugin.initialize(&host), 0);
    started = true;
    ASSERT_TRUE(client.connect(port, kStartBound, {"127.0.0.3"}));
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
    client.sendLine("QUIT()");
    Client elsewhere;
    EXPECT_FALSE(elsewhere.connect(port, 300ms));
}

TEST_F(PluginTest, AnIdleSessionEndsUnlessItsAcquisitionRuns) {
    writeSettings("IdleTimeout=0.3\n");
    dev0.blocking = true;
    start();
    EXPECT_EQ(client.exchange("START(0,1,1,f,10)"), "");
    ASSERT_TRUE(dev0.waitUntilRunning());
    std::this_thread::sleep_for(1500ms);
    dev0.release();
    EXPECT_EQ(client.nextFinal(), "OK");  // the session outlived the time-out while acquiring
    EXPECT_TRUE(client.waitForClose(kReplyBound));
}

TEST_F(PluginTest, LinesPastTheBoundAreAnsweredOnceAndTheSessionGoesOn) {
    start();
    const std::string atBound = "FOO(" + std::string(65536 - 4, 'x');
    const std::string pastBound = atBound + "x";
    ASSERT_TRUE(client.sendText(pastBound + pastBound + "\n" + atBound + "\n"));
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"),
              "ERROR: COMMAND TOO LONG|ERROR: UNKNOWN COMMAND|NO");
}

TEST_F(PluginTest, ALineThatArrivesSlowlyIsCarriedOutWhole) {
    start();
    ASSERT_TRUE(client.sendText("GUI_STA"));
    std::this_thread::sleep_for(1500ms);  // past the session's one-second read time-out
    EXPECT_EQ(client.exchange("RT(0)"), "");
    EXPECT_EQ(host.devControl.calls.lines(), std::vector<std::string>{"start dev0"});
}

// A STOP in START's own write comes before the device is called, and the run never starts; one
// that comes after the call but before the device has registered its run is refused by the device
// and must be repeated. A lost STOP leaves the device waiting.
TEST_F(PluginTest, AStopRightAfterStartIsNeverLost) {
    dev0.blocking = true;
    dev0.registerDelayMicros = 100000;  // an abort within this window fails and is forgotten
    start();
    for (const bool afterTheCall : {false, true}) {
        const size_t callsBefore = dev0.calls.lines().size();
        ASSERT_TRUE(
            client.sendText(afterTheCall ? "START(0,1,1,f,10)\n" : "START(0,1,1,f,10)\nSTOP()\n"));
        if (afterTheCall) {
            ASSERT_TRUE(waitUntil([&] { return dev0.calls.lines().size() == callsBefore + 2; }));
            ASSERT_TRUE(client.sendText("STOP()\n"));
        }
        std::string reply;
        ASSERT_TRUE(client.readLine(reply, kReplyBound)) << "after the call: " << afterTheCall;
        EXPECT_EQ(reply, "ERROR: ACQUISITION FAILED");
    }
}

// Only the low 16 bits of the port reach the socket; the log shows the configured number, once.
TEST_F(PluginTest, APortHeldElsewhereIsLoggedOnceAndTriedAgainUntilItIsFree) {
    auto holder = std::make_unique<TCPServerSocket>();
    ASSERT_EQ(holder->startServer(static_cast<unsigned short>(port), 1), 0);
    writeSettings("Port=" + std::to_string(65536 + port) + "\n");
    ASSERT_EQ(plugin.initialize(&host), 0);
    started = true;
    ASSERT_TRUE(waitForLog("remotectrl|0|Could not start the remote server at port " +
                           std::to_string(65536 + port)));
    holder.reset();
    ASSERT_TRUE(client.connect(port, kStartBound));
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
    EXPECT_EQ(host.logged.lines().size(), 1u);
}

// Floods the server from another thread with commands whose replies are six times as long, more
// of them than the socket buffers hold, while the client reads nothing.
constexpr int kFloodLines = 150000;
constexpr const char* kFloodReply = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)";

class Flood {
public:
    explicit Flood(RawClient& client)
        : mThread([&client] {
              for (int i = 0; i < kFloodLines && client.sendText("START()\n"); ++i) {
              }
          }) {}
    ~Flood() { mThread.join(); }

private:
    std::thread mThread;
};

TEST_F(PluginTest, RepliesWaitForAClientThatReadsLate) {
    start();
    ASSERT_TRUE(client.connect(port, kStartBound, {"127.0.0.1", nullptr, 4096}));
    Flood flood(client);
    std::this_thread::sleep_for(3s);  // the buffers fill, then a send waits longer than 1 s
    std::string reply;
    for (int i = 0; i < kFloodLines; ++i)
        ASSERT_TRUE(client.readLine(reply, kReplyBound) && reply == kFloodReply) << "reply " << i;
    EXPECT_EQ(client.request("GUI_ISRUNNING(0)"), "NO") << "a reply went out twice";
}

TEST_F(PluginTest, AClientThatReadsNothingIsDisconnectedAndLogged) {
    plugin.setStalledClientLimit(0.3);
    start();
    ASSERT_TRUE(client.connect(port, kStartBound, {"127.0.0.1", nullptr, 4096}));
    Flood flood(client);
    EXPECT_TRUE(waitForLog("remotectrl|0|Disconnected client 127.0.0.1"));
    EXPECT_TRUE(client.waitForClose(kReplyBound));
}

// The final reply belongs to the session that started the acquisition: a later client never
// receives it, and the host log says where it went.
TEST_F(PluginTest, AnAcquisitionRepliesOnlyToTheSessionThatStartedIt) {
    dev0.blocking = true;
    start();
    EXPECT_EQ(client.exchange("START(0,1,1,f,10)"), "");
    ASSERT_TRUE(dev0.waitUntilRunning());
    client.close();
    RawClient next;
    ASSERT_TRUE(next.connect(port, kStartBound));
    EXPECT_EQ(next.request("GUI_ISRUNNING(1)"), "NO");  // the next session is being served
    dev0.release();
    EXPECT_TRUE(
        waitForLog("remotectrl|0|Acquisition on device 0 ended with OK after its client left"));
    EXPECT_EQ(next.request("GUI_ISRUNNING(1)"), "NO");
}

TEST_F(PluginTest, AcceptedConnectionsSendEachReplyAtOnce) {
    start();
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    const int server = peerDescriptor(client.descriptor());
    ASSERT_GE(server, 0);
    ASSERT_EQ(getsockopt(server, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
    EXPECT_NE(noDelay, 0);
}

}  // namespace
}  // namespace testhost
