// znhost with the plug-in, driven over plain loopback sockets: the reply to every kind of command
// under the default and configured devices, STOP, trace lines and refused file names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/apps/znhost_fixture.h"

namespace apps_test {
namespace {

// Sent once the expected replies are in, its reply (known in every configuration used here)
// must come next: a command that ought to have answered nothing would show up in front of it.
const char* const kSentinel = "GUI_ISRUNNING(99)";
const char* const kSentinelReply = "ERROR: INVALID DEVICE INDEX";

struct ReplyCase {
    const char* name;
    const char* config;  // host config text; nullptr for the built-in devices
    std::vector<std::string> commands;
    std::vector<std::string> replies;
};

// Rows print as their name in test listings.
void PrintTo(const ReplyCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostReplyTest : public ZnhostTest, public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(ZnhostReplyTest, RepliesExactlyThis) {
    const ReplyCase& row = GetParam();
    std::vector<std::string> extra;
    if (row.config != nullptr) extra = {"--config", writeConfig(row.config)};
    ASSERT_TRUE(startServing(extra));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    for (const std::string& command : row.commands)
        ASSERT_TRUE(client.sendLine(command));
    std::string line;
    for (const std::string& reply : row.replies) {
        ASSERT_TRUE(client.readLine(line, kReplyBound)) << "waiting for " << reply;
        EXPECT_EQ(line, reply);
    }
    ASSERT_TRUE(client.sendLine(kSentinel));
    ASSERT_TRUE(client.readLine(line, kReplyBound));
    EXPECT_EQ(line, kSentinelReply);
}

const char* const kUnfilteredFirst = "[Device0]\nFiltered=false\n[Device1]\n";

const ReplyCase kReplyCases[] = {
    {"start_runs_and_answers_ok", nullptr, {"START(0,2,0.01,,10)"}, {"OK"}},
    {"start_name_in_lower_case", nullptr, {"start(1,1,0.01,,10)"}, {"OK"}},
    {"start_at_threshold_minimum", nullptr, {"START(0,1,0,,0)"}, {"OK"}},
    {"start_device_past_the_list",
     nullptr,
     {"START(2,1,0.01,,10)"},
     {"ERROR: INVALID DEVICE INDEX"}},
    {"start_negative_count", nullptr, {"START(0,-1,0.01,,10)"}, {"ERROR: INVALID ACQ COUNT"}},
    {"start_negative_time", nullptr, {"START(0,1,-0.5,,10)"}, {"ERROR: INVALID ACQ TIME"}},
    {"start_threshold_at_maximum", nullptr, {"START(0,1,0.01,,100)"}, {"ERROR: INVALID THL"}},
    {"start_four_arguments",
     nullptr,
     {"START(0,1,0.01,f)"},
     {"ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)"}},
    {"start_while_running",
     nullptr,
     {"START(0,1,2,,10)", "START(1,1,0,,10)", "FOO()"},
     {"ERROR: ACQ ALREADY RUNNING", "OK"}},
    {"unknown_command", nullptr, {"FOO()"}, {"ERROR: UNKNOWN COMMAND"}},
    {"line_without_parenthesis_ignored", nullptr, {"GUI_ISRUNNING"}, {}},
    {"stop_while_idle_is_silent", nullptr, {"STOP()"}, {}},
    {"gui_start_is_silent_then_running", nullptr, {"GUI_START(1)", "GUI_ISRUNNING(1)"}, {"YES"}},
    {"gui_stop_is_silent_then_idle",
     nullptr,
     {"GUI_START(0)", "GUI_STOP(0)", "GUI_ISRUNNING(0)"},
     {"NO"}},
    {"gui_setfile_is_silent", nullptr, {"GUI_SETFILE(0,x.txt)", "GUI_ISRUNNING(0)"}, {"NO"}},
    {"gui_setfile_one_argument",
     nullptr,
     {"GUI_SETFILE(0)"},
     {"ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)"}},
    {"gui_start_two_arguments",
     nullptr,
     {"GUI_START(0,1)"},
     {"ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)"}},
    {"gui_isrunning_past_the_list", nullptr, {"GUI_ISRUNNING(2)"}, {"ERROR: INVALID DEVICE INDEX"}},
    {"dotdot_file_fails_the_acquisition",
     nullptr,
     {"START(0,1,0.01,../escape.txt,10)"},
     {"ERROR: ACQUISITION FAILED"}},
    {"devcontrol_not_loaded",
     "[Device0]\n[DevControl]\nLoaded=false\n",
     {"GUI_START(0)"},
     {"ERROR: UNEXPECTED ERROR"}},
    {"devcontrol_without_interface",
     "[Device0]\n[DevControl]\nPrivateInterface=false\n",
     {"GUI_ISRUNNING(0)"},
     {"ERROR: UNEXPECTED ERROR"}},
    {"no_devices",
     "[DevControl]\n",
     {"START(0,1,0,,1)", "GUI_START(0)"},
     {"ERROR: INVALID DEVICE INDEX", "ERROR: INVALID DEVICE INDEX"}},
    {"range_not_reported",
     "[Device0]\nReportRange=false\n",
     {"START(0,1,0,,0)"},
     {"ERROR: INVALID THL"}},
    {"range_from_config",
     "[Device0]\nThresholdMin=5\nThresholdMax=6\n",
     {"START(0,1,0,,4.9)", "START(0,1,0,,5.5)"},
     {"ERROR: INVALID THL", "OK"}},
    {"threshold_refused_by_device",
     "[Device0]\nSetThresholdResult=3\n",
     {"START(0,1,0,,1)"},
     {"ERROR: FAILED SETTING THL"}},
    {"acquisition_result_from_config",
     "[Device0]\nAcqResult=5\n",
     {"START(0,1,0,,1)"},
     {"ERROR: ACQUISITION FAILED"}},
    {"start_counts_in_filtered_list",
     kUnfilteredFirst,
     {"START(1,1,0,,1)", "START(0,1,0,,1)"},
     {"ERROR: INVALID DEVICE INDEX", "OK"}},
    {"gui_counts_in_full_list", kUnfilteredFirst, {"GUI_START(1)", "GUI_ISRUNNING(1)"}, {"YES"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostReplyTest, ::testing::ValuesIn(kReplyCases),
                         [](const auto& info) { return std::string(info.param.name); });

class ZnhostCommandTest : public ZnhostTest {};

struct StopCase {
    const char* name;
    const char* config;
    const char* reply;
};

// Rows print as their name in test listings.
void PrintTo(const StopCase& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostStopTest : public ZnhostTest, public ::testing::WithParamInterface<StopCase> {};

TEST_P(ZnhostStopTest, StopAbortsTheRunningAcquisition) {
    std::vector<std::string> extra = {"--trace"};
    if (GetParam().config != nullptr)
        extra.insert(extra.end(), {"--config", writeConfig(GetParam().config)});
    ASSERT_TRUE(startServing(extra));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    ASSERT_TRUE(client.sendLine("START(0,1,600,,10)"));
    ASSERT_TRUE(waitForHostStderr("trace: sim0.runAcquisition(1, 600, 1, \"\")\n"));
    ASSERT_TRUE(client.sendLine("STOP()"));
    std::string line;
    ASSERT_TRUE(client.readLine(line, kReplyBound));
    EXPECT_EQ(line, GetParam().reply);
    EXPECT_NE(hostStderr().find("trace: sim0.abortAcquisition()\n"), std::string::npos);
}

const StopCase kStopCases[] = {
    {"abort_result_fails", nullptr, "ERROR: ACQUISITION FAILED"},
    {"abort_result_zero_is_ok", "[Device0]\nAbortResult=0\n", "OK"},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostStopTest, ::testing::ValuesIn(kStopCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ZnhostCommandTest, TraceShowsEveryHostCallInOrder) {
    ASSERT_TRUE(startServing({"--trace"}));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    std::string line;
    ASSERT_TRUE(client.sendLine("START(1,2,0.05,t.txt,10.5)"));
    ASSERT_TRUE(client.readLine(line, kReplyBound));
    EXPECT_EQ(line, "OK");
    ASSERT_TRUE(client.sendLine("GUI_SETFILE(1,x.txt)"));
    ASSERT_TRUE(client.sendLine("GUI_ISRUNNING(1)"));
    ASSERT_TRUE(client.readLine(line, kReplyBound));
    EXPECT_EQ(line, "NO");
    client.close();
    ASSERT_TRUE(stopHost());
    EXPECT_EQ(traceLines(), (std::vector<std::string>{
                                "trace: host.configDir()",
                                "trace: host.listDevicesFiltered(1)",
                                "trace: sim1.thresholdRange(0, 2)",
                                "trace: sim1.setThreshold(0, 2, 10.5)",
                                "trace: sim1.runAcquisition(2, 0.05, 1, \"t.txt\")",
                                "trace: host.listDevices()",
                                "trace: host.findPlugin(\"devcontrol\")",
                                "trace: devcontrol.privateInterface()",
                                "trace: devcontrol.setFile(sim1, \"x.txt\", 1)",
                                "trace: host.listDevices()",
                                "trace: host.findPlugin(\"devcontrol\")",
                                "trace: devcontrol.privateInterface()",
                                "trace: devcontrol.isRunning(sim1)",
                            }));
}

TEST_F(ZnhostCommandTest, TraceEscapesTheFileNameAsPassed) {
    ASSERT_TRUE(startServing({"--trace"}));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    EXPECT_EQ(client.request("START(0,0,0,a\x01 b\\c\x7f\xe9,10)", kReplyBound), "OK");
    EXPECT_NE(
        hostStderr().find("trace: sim0.runAcquisition(0, 0, 1, \"a\\x01 b\\\\c\\x7f\\xe9\")\n"),
        std::string::npos)
        << hostStderr();
}

TEST_F(ZnhostCommandTest, WithoutTraceNoTraceLines) {
    ASSERT_TRUE(startServing());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    EXPECT_EQ(client.request("GUI_ISRUNNING(0)", kReplyBound), "NO");
    EXPECT_TRUE(traceLines().empty());
}

TEST_F(ZnhostCommandTest, FileNamesOutsideTheDataFolderWriteNothing) {
    ASSERT_TRUE(startServing());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    const std::string names[] = {"../escape.txt", "sub/../../escape.txt", "..",
                                 mTemp.file("absolute.txt")};
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(client.sendLine("START(0,1,0,\"" + name + "\",10)"));
        std::string line;
        ASSERT_TRUE(client.readLine(line, kReplyBound));
        EXPECT_EQ(line, "ERROR: ACQUISITION FAILED");
    }
    EXPECT_FALSE(fileExists(mTemp.file("escape.txt")));
    EXPECT_FALSE(fileExists(mTemp.file("absolute.txt")));
    EXPECT_NE(hostStderr().find("[znhost] sim0: refused the file name \"../escape.txt\""),
              std::string::npos)
        << hostStderr();
}

}  // namespace
}  // namespace apps_test
