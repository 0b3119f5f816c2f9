// znhost as a process: start-up output, refusals that exit 2 before anything runs, the stop
// signals, a port that is taken, and clients that vanish.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/apps/znhost_fixture.h"

namespace apps_test {
namespace {

class ZnhostProcessTest : public ZnhostTest {
protected:
    // The folders come first, so that an option in `args` overrides them.
    std::vector<std::string> withFolders(const std::vector<std::string>& args) const {
        std::vector<std::string> all = {"--settings-dir", mSettingsDir, "--data-dir", mDataDir};
        all.insert(all.end(), args.begin(), args.end());
        return all;
    }
};

TEST_F(ZnhostProcessTest, LoadsTheDefaultPluginAndAnnouncesIt) {
    ASSERT_TRUE(startServing());
    EXPECT_EQ(hostStdout(), "loaded remotectrl: Plugin that adds tcp/ip interface\nready\n");
}

TEST_F(ZnhostProcessTest, LoadsAnExplicitPluginPath) {
    ASSERT_TRUE(startServing({"--plugin", PLUGIN_PATH}));
    ASSERT_TRUE(stopHost());
    EXPECT_EQ(hostStdout(),
              "loaded remotectrl: Plugin that adds tcp/ip interface\nready\nclosed\n");
}

struct StopSignalCase {
    const char* name;
    int signal;
};

// Rows print as their name in test listings.
void PrintTo(const StopSignalCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostStopSignalTest : public ZnhostProcessTest,
                             public ::testing::WithParamInterface<StopSignalCase> {};

TEST_P(ZnhostStopSignalTest, ClosesWithAConnectedClient) {
    ASSERT_TRUE(startServing());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    ASSERT_EQ(client.request("GUI_ISRUNNING(0)", kReplyBound), "NO");
    mHost.sendSignal(GetParam().signal);
    ASSERT_TRUE(mHost.waitForExit(kExitBound));
    EXPECT_TRUE(mHost.exitedNormally());
    EXPECT_EQ(mHost.exitCode(), 0);
    EXPECT_EQ(splitLines(hostStdout()).back(), "closed");
    EXPECT_TRUE(client.waitForClose(kReplyBound));
}

TEST_P(ZnhostStopSignalTest, ClosesDuringAnAcquisition) {
    ASSERT_TRUE(startServing({"--trace"}));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    ASSERT_TRUE(client.sendLine("START(0,1,600,run.txt,10)"));
    ASSERT_TRUE(waitForHostStderr("runAcquisition(1, 600, 1, \"run.txt\")"));
    mHost.sendSignal(GetParam().signal);
    ASSERT_TRUE(mHost.waitForExit(kExitBound));
    EXPECT_EQ(mHost.exitCode(), 0);
    EXPECT_EQ(splitLines(hostStdout()).back(), "closed");
}

const StopSignalCase kStopSignals[] = {{"sigterm", SIGTERM}, {"sigint", SIGINT}};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostStopSignalTest, ::testing::ValuesIn(kStopSignals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ZnhostProcessTest, PortInUseIsLoggedAndTheHostStaysUp) {
    int blocker = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(mPort));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(blocker, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ASSERT_EQ(listen(blocker, 1), 0);
    ASSERT_TRUE(startHost());
    EXPECT_TRUE(waitForHostStderr("[remotectrl] Could not start the remote server at port " +
                                  std::to_string(mPort) + "\n"))
        << hostStderr();
    close(blocker);
    ASSERT_TRUE(stopHost());
    EXPECT_EQ(mHost.exitCode(), 0);
}

// Replies to a client that has gone fail in send(); the plug-in must survive that on its own,
// since znhost leaves SIGPIPE at its default action, which would end the process.
TEST_F(ZnhostProcessTest, SurvivesClientsThatVanish) {
    ASSERT_TRUE(startServing());
    std::string burst;
    for (int i = 0; i < 200; ++i)
        burst += "GUI_ISRUNNING(0)\n";
    for (bool reset : {false, true}) {
        RawClient leaving;
        ASSERT_TRUE(leaving.connect(mPort, kReplyBound));
        ASSERT_TRUE(leaving.sendText(burst));
        reset ? leaving.abort() : leaving.close();
    }
    RawClient starter;
    ASSERT_TRUE(starter.connect(mPort, kReplyBound));
    ASSERT_TRUE(starter.sendLine("START(0,1,0.2,,10)"));
    starter.close();

    RawClient survivor;
    ASSERT_TRUE(survivor.connect(mPort, kReplyBound));
    std::string line;
    for (int attempt = 0; attempt < 200 && line != "OK"; ++attempt) {
        ASSERT_TRUE(survivor.sendLine("START(0,1,0,,10)"));
        ASSERT_TRUE(survivor.readLine(line, kReplyBound)) << hostStderr();
        ASSERT_TRUE(line == "OK" || line == "ERROR: ACQ ALREADY RUNNING") << line;
        if (line != "OK") std::this_thread::sleep_for(milliseconds(50));
    }
    EXPECT_EQ(line, "OK");
    EXPECT_FALSE(mHost.waitForExit(milliseconds(0))) << "znhost ended; stderr:\n" << hostStderr();
}

struct RefusalCase {
    const char* name;
    const char* config;  // written to host.ini and passed with --config; nullptr for none
    std::vector<std::string> args;
    std::vector<std::string> mentioned;  // "@" stands for the temporary folder
};

// Rows print as their name in test listings.
void PrintTo(const RefusalCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostRefusalTest : public ZnhostProcessTest,
                          public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(ZnhostRefusalTest, ExitsTwoBeforeLoadingAnything) {
    const RefusalCase& row = GetParam();
    std::vector<std::string> args;
    if (row.config != nullptr) args = {"--config", writeConfig(row.config)};
    for (std::string arg : row.args) {
        if (arg.front() == '@') arg = mTemp.path() + arg.substr(1);
        args.push_back(arg);
    }
    ASSERT_TRUE(runHostToExit(withFolders(args)));
    EXPECT_EQ(mHost.exitCode(), 2);
    EXPECT_EQ(hostStdout(), "");
    for (std::string text : row.mentioned) {
        if (text.front() == '@') text = mTemp.path() + text.substr(1);
        EXPECT_NE(hostStderr().find(text), std::string::npos) << text << " in:\n" << hostStderr();
    }
}

const RefusalCase kRefusals[] = {
    {"config_bad_number",
     "[Device0]\nFrameWidth=wide\n",
     {},
     {"@/host.ini", "[Device0]", "FrameWidth"}},
    {"config_bad_double",
     "[Device0]\n[Device1]\nThresholdMax=1.5.0\n",
     {},
     {"@/host.ini", "[Device1]", "ThresholdMax"}},
    {"config_bad_bool", "[DevControl]\nLoaded=yes\n", {}, {"@/host.ini", "[DevControl]", "Loaded"}},
    {"config_unknown_key",
     "[Device0]\nFramewidth=4\n",
     {},
     {"@/host.ini", "[Device0]", "Framewidth"}},
    {"config_missing", nullptr, {"--config", "@/absent.ini"}, {"@/absent.ini", "cannot read"}},
    {"plugin_missing", nullptr, {"--plugin", "@/absent.so"}, {"@/absent.so"}},
    {"plugin_without_entry", nullptr, {"--plugin", NO_ENTRY_MODULE_PATH}, {"znGetPlugin"}},
    {"second_plugin_missing",
     nullptr,
     {"--plugin", PLUGIN_PATH, "--plugin", "@/absent.so"},
     {"@/absent.so"}},
    {"data_folder_missing", nullptr, {"--data-dir", "@/nowhere"}, {"@/nowhere"}},
    {"unknown_option", nullptr, {"--verbose"}, {"--verbose", "Usage: znhost"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostRefusalTest, ::testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ZnhostProcessTest, HelpPrintsUsageAndExitsZero) {
    ASSERT_TRUE(runHostToExit({"--help"}));
    EXPECT_EQ(mHost.exitCode(), 0);
    EXPECT_EQ(hostStdout().rfind("Usage: znhost", 0), 0u) << hostStdout();
    EXPECT_NE(hostStdout().find("--settings-dir"), std::string::npos);
}

}  // namespace
}  // namespace apps_test
