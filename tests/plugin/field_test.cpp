// What a plug-in on a lab network needs beyond the command language: its settings for access
// control, bounded lines, slow lines, a port that frees up later, STOP right after START, replies
// that wait for a slow reader, and clients that read nothing.
#include <gtest/gtest.h>

#include <thread>

#include "net/sockets.h"
#include "plugin/settings.h"
#include "tests/plugin/plugin_fixture.h"
#include "tests/support/row_name.h"

namespace testhost {
namespace {

using namespace std::chrono_literals;

struct SettingsRow {
    const char* name;
    const char* lines;
    const char* invalid;  // "KEY: VALUE" of the first value that does not parse, or ""
    int port = 59876;
};

const SettingsRow kSettingsRows[] = {
    {"port_not_a_number_is_lenient", "Port=abc\n", ""},
    {"address", "Address=127.0.0.3\n", ""},
    {"address_name", "Address=localhost\n", "Address: localhost"},
    {"address_octet_past_255", "Address=127.0.0.256\n", "Address: 127.0.0.256"},
    {"allow_list_with_blanks", "AllowFrom= 127.0.0.2 , 10.0.0.0/8\n", ""},
    {"allow_prefix_past_32", "AllowFrom=10.0.0.0/33\n", "AllowFrom: 10.0.0.0/33"},
    {"allow_empty_item", "AllowFrom=127.0.0.1,,127.0.0.2\n", "AllowFrom: 127.0.0.1,,127.0.0.2"},
    {"idle_fraction", "IdleTimeout=0.5\n", ""},
    {"idle_negative", "IdleTimeout=-1\n", "IdleTimeout: -1"},
    {"address_checked_first", "IdleTimeout=x\nAddress=y\n", "Address: y"},
};

class SettingsTest : public ::testing::TestWithParam<SettingsRow> {};

TEST_P(SettingsTest, NamesTheFirstValueThatDoesNotParse) {
    TempDir dir;
    writeFile(dir.path() + "/remotectrl.ini", std::string("[Settings]\n") + GetParam().lines);
    const PluginRemoteCtrl::PluginSettings settings =
        PluginRemoteCtrl::readPluginSettings(dir.path());
    const std::string invalid =
        settings.invalidKey.empty() ? "" : settings.invalidKey + ": " + settings.invalidValue;
    EXPECT_EQ(invalid, GetParam().invalid);
    EXPECT_EQ(settings.port, GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(Rows, SettingsTest, ::testing::ValuesIn(kSettingsRows), RowName());

TEST(AllowFrom, MatchesAddressesAndBlocks) {
    TempDir dir;
    writeFile(dir.path() + "/remotectrl.ini",
              "[Settings]\nAllowFrom=10.1.2.3/8, 192.168.1.7, 172.16.0.0/12\n");
    const auto allowFrom = PluginRemoteCtrl::readPluginSettings(dir.path()).allowFrom;
    for (const char* allowed : {"10.200.0.1", "192.168.1.7", "172.31.255.255"})
        EXPECT_TRUE(PluginRemoteCtrl::isAllowed(allowFrom, allowed)) << allowed;
    for (const char* refused : {"11.0.0.1", "192.168.1.8", "172.32.0.0", ""})
        EXPECT_FALSE(PluginRemoteCtrl::isAllowed(allowFrom, refused)) << refused;
    EXPECT_TRUE(PluginRemoteCtrl::isAllowed({{0, 0}}, "1.2.3.4"));
}

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
    EXPECT_TRUE(waitForLog("remotectrl|0|Refused connection from 127.0.0.1"));
    Client allowed;
    ASSERT_TRUE(allowed.connect(port, kStartBound, {"127.0.0.1", "127.0.0.2"}));
    EXPECT_EQ(allowed.exchange("GUI_ISRUNNING(0)"), "NO");
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

// Either the plug-in sees the STOP before it calls the device, or it hands the STOP to the device,
// so every round ends in the abort's failure; a lost STOP leaves the device waiting.
TEST_F(PluginTest, AStopSentWithItsStartIsNotLost) {
    dev0.blocking = true;
    start();
    for (int round = 0; round < 10; ++round) {
        ASSERT_TRUE(client.sendText("START(0,1,1,f,10)\nSTOP()\n"));
        std::string reply;
        ASSERT_TRUE(client.readLine(reply, kReplyBound)) << "round " << round;
        EXPECT_EQ(reply, "ERROR: ACQUISITION FAILED") << "round " << round;
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
}

TEST_F(PluginTest, AClientThatReadsNothingIsDisconnectedAndLogged) {
    plugin.setStalledClientLimit(0.3);
    start();
    ASSERT_TRUE(client.connect(port, kStartBound, {"127.0.0.1", nullptr, 4096}));
    Flood flood(client);
    EXPECT_TRUE(waitForLog("remotectrl|0|Disconnected client 127.0.0.1"));
    EXPECT_TRUE(client.waitForClose(kReplyBound));
}

}  // namespace
}  // namespace testhost
