// The GUI_ commands: argument counts, device look-up in the full list, the devcontrol plug-in.
#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

using GuiTest = PluginTest;

struct GuiCase {
    const char* command;
    const char* reply;    // "" when nothing is sent
    const char* devCall;  // what devcontrol was asked, "" for nothing
};

TEST_F(GuiTest, RepliesAndDevControlCalls) {
    const GuiCase cases[] = {
        {"GUI_START(0)", "", "start dev0"},
        {"gui_isrunning(0)", "YES", "isRunning dev0"},
        {"GUI_ISRUNNING(1)", "NO", "isRunning dev1"},
        {"GUI_STOP(0)", "", "stop dev0"},
        {"GUI_ISRUNNING( 0 )", "NO", "isRunning dev0"},
        {"GUI_SETFILE(1,\"/data/a, b.txt\")", "", "setFile dev1 /data/a,b.txt 1"},
        {"GUI_SETFILE(1x,run 2.txt)", "", "setFile dev1 run 2.txt 1"},
        {"GUI_START()", "ERROR: INVALID DEVICE INDEX", ""},  // one empty argument
        {"GUI_ISRUNNING(abc)", "ERROR: INVALID DEVICE INDEX", ""},
        {"GUI_STOP(2)", "ERROR: INVALID DEVICE INDEX", ""},
        {"GUI_STOP(-1)", "ERROR: INVALID DEVICE INDEX", ""},
        {"GUI_START(0,1)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)", ""},
        {"GUI_ISRUNNING(0,1)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)", ""},
        {"GUI_STOP(0,1)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)", ""},
        {"GUI_SETFILE(0)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)", ""},
        {"GUI_SETFILE(0,a,b)", "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)", ""},
    };
    start();
    for (const GuiCase& c : cases) {
        size_t before = host.devControl.calls().size();
        EXPECT_EQ(client.exchange(c.command), c.reply) << c.command;
        auto calls = host.devControl.calls();
        if (*c.devCall) {
            ASSERT_EQ(calls.size(), before + 1) << c.command;
            EXPECT_EQ(calls.back(), c.devCall) << c.command;
        } else {
            EXPECT_EQ(calls.size(), before) << c.command;
        }
    }
}

TEST_F(GuiTest, MissingDevControlIsAnUnexpectedErrorAfterTheIndexCheck) {
    host.devControlLoaded = false;
    start();
    EXPECT_EQ(client.exchange("GUI_START(0)"), "ERROR: UNEXPECTED ERROR");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(1)"), "ERROR: UNEXPECTED ERROR");
    EXPECT_EQ(client.exchange("GUI_ISRUNNING(5)"), "ERROR: INVALID DEVICE INDEX");
}

TEST_F(GuiTest, DevControlWithoutPrivateInterfaceIsAnUnexpectedError) {
    host.handle.interface = nullptr;
    start();
    EXPECT_EQ(client.exchange("GUI_SETFILE(0,f)"), "ERROR: UNEXPECTED ERROR");
}

TEST_F(GuiTest, NoDevicesMeansEveryIndexIsInvalid) {
    host.devices.clear();
    host.filtered.clear();
    start();
    EXPECT_EQ(client.exchange("GUI_STOP(0)"), "ERROR: INVALID DEVICE INDEX");
    EXPECT_EQ(client.exchange("START(0,1,1,f,1)"), "ERROR: INVALID DEVICE INDEX");
}

}  // namespace
}  // namespace testhost
