// rcclient against a running znhost (replies, exit status, files, interactive input, Ctrl-C),
// and against a scripted server for reply orders and timings that znhost produces only by chance.
#include <signal.h>

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/apps/scripted_server.h"
#include "tests/apps/znhost_fixture.h"

namespace apps_test {
namespace {

class RcclientTest : public ZnhostTest {};

// Every line holds `width` values that fit an unsigned 16-bit count.
void expectMatrix(const std::string& text, size_t rows, int width) {
    std::vector<std::string> lines = splitLines(text);
    ASSERT_EQ(lines.size(), rows);
    for (const std::string& line : lines) {
        std::istringstream values(line);
        long value = -1;
        int count = 0;
        while (values >> value) {
            EXPECT_GE(value, 0);
            EXPECT_LE(value, 65535);
            ++count;
        }
        EXPECT_EQ(count, width) << line;
    }
}

TEST_F(RcclientTest, StartPrintsOkAndTheFileHoldsTheFrames) {
    ASSERT_TRUE(startServing());
    ClientRun run = runClient({"START(0,10,0.01,run.txt,10)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "OK\n");
    expectMatrix(readFile(mDataDir + "/run.txt"), 10 * 16, 16);
}

TEST_F(RcclientTest, FrameSizeComesFromConfig) {
    ASSERT_TRUE(startServing(
        {"--config", writeConfig("[Device0]\n[Device1]\nFrameWidth=4\nFrameHeight=3\n")}));
    ClientRun run = runClient({"START(1,2,0,small.txt,10)"});
    EXPECT_EQ(run.out, "OK\n");
    expectMatrix(readFile(mDataDir + "/small.txt"), 2 * 3, 4);
}

struct ClientCase {
    const char* name;
    std::vector<std::string> commands;
    const char* out;
    int exitCode;
};

// Rows print as their name in test listings.
void PrintTo(const ClientCase& row, std::ostream* out) {
    *out << row.name;
}

class RcclientCommandTest : public ZnhostTest, public ::testing::WithParamInterface<ClientCase> {};

TEST_P(RcclientCommandTest, PrintsRepliesAndExitsAccordingly) {
    ASSERT_TRUE(startServing());
    ClientRun run = runClient(GetParam().commands);
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, GetParam().out);
    EXPECT_EQ(run.exitCode, GetParam().exitCode) << run.err;
}

const ClientCase kClientCases[] = {
    {"silent_commands_then_answers",
     {"GUI_START(0)", "GUI_ISRUNNING(0)", "GUI_STOP(0)", "GUI_ISRUNNING(0)"},
     "YES\nNO\n",
     0},
    {"setfile_and_stop_are_silent", {"GUI_SETFILE(1,a.txt)", "STOP()"}, "", 0},
    {"answer_error", {"GUI_ISRUNNING(9)"}, "ERROR: INVALID DEVICE INDEX\n", 1},
    {"silent_command_error_is_caught",
     {"GUI_SETFILE(0)"},
     "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)\n",
     1},
    {"unknown_command", {"FOO()"}, "ERROR: UNKNOWN COMMAND\n", 1},
    {"error_then_more_commands",
     {"GUI_START(0)", "GUI_STOP(7)", "GUI_ISRUNNING(0)"},
     "ERROR: INVALID DEVICE INDEX\nYES\n",
     1},
    {"failed_acquisition", {"START(0,1,0,../x.txt,10)"}, "ERROR: ACQUISITION FAILED\n", 1},
    {"quit_ends_the_session", {"GUI_ISRUNNING(0)", "QUIT()", "GUI_ISRUNNING(9)"}, "NO\n", 0},
    {"empty_command_is_skipped", {"", "GUI_ISRUNNING(1)"}, "NO\n", 0},
    {"sync_line_answers_itself",
     {"GUI_SETFILE()", "GUI_ISRUNNING(0)"},
     "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)\nNO\n",
     1},
    {"setfile_three_arguments_answers_once",
     {"gui_setfile(0,a,b)", "GUI_ISRUNNING(0)"},
     "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)\nNO\n",
     1},
    {"ignored_line_is_silent", {"hello", "GUI_ISRUNNING(0)"}, "NO\n", 0},
    {"acquisitions_ending_before_their_sync_reply",
     {"START(0,0,0,,10)", "START(0,0,0,,10)", "START(0,0,0,,10)", "GUI_ISRUNNING(0)"},
     "OK\nOK\nOK\nNO\n",
     0},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientCommandTest, ::testing::ValuesIn(kClientCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Waiting out count x time here would take days; the refusal must end the wait.
TEST_F(RcclientTest, RefusedStartAnswersWithoutWaitingForTheAcquisition) {
    ASSERT_TRUE(startServing());
    ClientRun run = runClient({"START(0,100000,100,x.txt,1000)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "ERROR: INVALID THL\n");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_F(RcclientTest, InteractiveReadsOneCommandPerLineUntilQuit) {
    ASSERT_TRUE(startServing());
    ClientRun run = runClient({}, "GUI_START(1)\n\nGUI_ISRUNNING(1)\r\nQUIT()\nGUI_ISRUNNING(9)\n");
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "YES\n");
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST_F(RcclientTest, InteractiveEndsAtEndOfInput) {
    ASSERT_TRUE(startServing());
    ClientRun run = runClient({}, "GUI_ISRUNNING(5)\nGUI_ISRUNNING(0)");
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "ERROR: INVALID DEVICE INDEX\nNO\n");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_F(RcclientTest, InterruptDuringStartSendsStopAndWaitsForTheReply) {
    ASSERT_TRUE(startServing({"--trace"}));
    ChildProcess client;
    std::string prefix = startClient(client, {"START(0,1,600,,10)"});
    ASSERT_TRUE(waitForHostStderr("trace: sim0.runAcquisition(1, 600, 1, \"\")\n"));
    client.sendSignal(SIGINT);
    ClientRun run = finishClient(client, prefix);
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "ERROR: ACQUISITION FAILED\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("sending STOP()"), std::string::npos) << run.err;
    EXPECT_NE(hostStderr().find("trace: sim0.abortAcquisition()\n"), std::string::npos);
}

TEST_F(RcclientTest, NoServerExitsTwoNamingHostAndPort) {
    ClientRun run = runClient({"GUI_ISRUNNING(0)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("127.0.0.1:" + std::to_string(mPort)), std::string::npos) << run.err;
}

TEST_F(RcclientTest, ThousandSilentCommandsThenAnAnswer) {
    ASSERT_TRUE(startServing());
    std::vector<std::string> commands(1000, "GUI_STOP(0)");
    commands[617] = "GUI_STOP(9)";
    commands.push_back("GUI_ISRUNNING(0)");
    ClientRun run = runClient(commands);
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "ERROR: INVALID DEVICE INDEX\nNO\n");
    EXPECT_EQ(run.exitCode, 1) << run.err;
}

const char* const kSync = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)\n";

// Answers the sync line with the sync text and the lines of `table` with their entry.
ScriptedServer::Script answering(std::map<std::string, Answer> table) {
    return [table](const std::string& line) {
        if (line == "GUI_SETFILE()") return Answer{kSync};
        auto found = table.find(line);
        return found == table.end() ? Answer{} : found->second;
    };
}

TEST_F(RcclientTest, StrayFinalLineIsReportedNotPrinted) {
    ScriptedServer server(mPort, answering({{"GUI_ISRUNNING(0)", {"OK\nNO\n"}}}));
    ASSERT_TRUE(server.listening());
    ClientRun run = runClient({"GUI_ISRUNNING(0)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "NO\n");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("dropped \"OK\""), std::string::npos) << run.err;
}

TEST_F(RcclientTest, LineSplitAcrossSegmentsArrivesWhole) {
    ScriptedServer server(mPort, answering({{"GUI_ISRUNNING(0)", {"N", 0.5, std::string("O\n")}}}));
    ASSERT_TRUE(server.listening());
    ClientRun run = runClient({"GUI_ISRUNNING(0)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "NO\n");
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

// Accepts START: its sync reply comes at once, the final line `delay` seconds after it.
ScriptedServer::Script acceptingStart(double delay) {
    bool started = false;
    return [started, delay](const std::string& line) mutable {
        if (line.rfind("START(", 0) == 0) started = true;
        if (line != "GUI_SETFILE()") return Answer{};
        Answer sync{kSync};
        if (started) sync = Answer{kSync, delay, "OK\n"};
        started = false;
        return sync;
    };
}

// The final line comes later than the default time-out of 5 s; START has no limit of its own.
TEST_F(RcclientTest, AcceptedStartWaitsForItsFinalLineWithoutLimit) {
    ScriptedServer server(mPort, acceptingStart(6.0));
    ASSERT_TRUE(server.listening());
    ClientRun run = runClient({"START(0,0,0,f,10)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "OK\n");
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST_F(RcclientTest, GivenTimeOutBoundsTheWaitForTheFinalLine) {
    ScriptedServer server(mPort, acceptingStart(30.0));
    ASSERT_TRUE(server.listening());
    ClientRun run = runClient({"--timeout", "0.5", "START(0,0,0,f,10)"});
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("no reply to START(0,0,0,f,10)"), std::string::npos) << run.err;
}

TEST_F(RcclientTest, UsageErrorsExitTwoAndHelpExitsZero) {
    ClientRun bad = runClient({"--port", "0"});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_NE(bad.err.find("Usage: rcclient"), std::string::npos) << bad.err;
    ClientRun help = runClient({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out.rfind("Usage: rcclient", 0), 0u) << help.out;
    ClientRun version = runClient({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out.rfind("rcclient ", 0), 0u) << version.out;
}

}  // namespace
}  // namespace apps_test
