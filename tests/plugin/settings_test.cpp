// The port setting read from remotectrl.ini in the host's settings directory.
#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

struct PortCase {
    const char* name;
    const char* fileText;  // nullptr: no file
    int port;
};

TEST(PortSetting, ReadFromSectionSettingsKeyPort) {
    const PortCase cases[] = {
        {"no file", nullptr, 59876},
        {"plain", "[Settings]\nPort=1234\n", 1234},
        {"digits then text", "[Settings]\nPort=1234abc\n", 1234},
        {"blank before number", "[Settings]\nPort= 1234\n", 1234},
        {"CR LF line ends", "[Settings]\r\nPort=1234\r\n", 1234},
        {"not a number", "[Settings]\nPort=abc\n", 59876},
        {"empty value", "[Settings]\nPort=\n", 59876},
        {"section case differs", "[settings]\nPort=1234\n", 59876},
        {"key case differs", "[Settings]\nport=1234\n", 59876},
        {"blank before separator", "[Settings]\nPort =1234\n", 59876},
        {"above 16 bits kept whole", "[Settings]\nPort=65536\n", 65536},
        {"negative kept whole", "[Settings]\nPort=-1\n", -1},
    };
    for (const PortCase& c : cases) {
        TempDir dir;
        if (c.fileText) writeFile(dir.path() + "/remotectrl.ini", c.fileText);
        FakeHost host;
        host.settingsDir = dir.path();
        PluginRemoteCtrl::RemoteCtrl plugin;
        EXPECT_EQ(plugin.port(), 59876) << c.name;
        plugin.initialize(&host);
        plugin.onClose();
        EXPECT_EQ(plugin.port(), c.port) << c.name;
    }
}

}  // namespace
}  // namespace testhost
