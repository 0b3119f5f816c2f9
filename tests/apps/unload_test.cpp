// The module as a host treats it over a long session: twenty cycles of dlopen, initialize, onClose
// and dlclose, each on a fresh port and each closing in a different state. onClose must return,
// close every connection, and leave no thread of the module behind, since the host unloads the
// code right after it.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/apps/fault_fixture.h"
#include "tests/plugin/fake_host.h"

namespace apps_test {
namespace {

enum class AtClose { NoClient, IdleClient, RunningAcquisition, ClientInBacklog, PortTaken };

struct CloseCase {
    const char* name;
    AtClose state;
};

const CloseCase kCloseCases[] = {
    {"no_client", AtClose::NoClient},
    {"idle_client", AtClose::IdleClient},
    {"running_acquisition", AtClose::RunningAcquisition},
    {"client_in_backlog", AtClose::ClientInBacklog},
    {"port_taken", AtClose::PortTaken},
};
constexpr int kCycles = 20;

bool logHas(testhost::FakeHost& host, const std::string& entry) {
    std::vector<std::string> lines = host.logLines();
    return std::find(lines.begin(), lines.end(), entry) != lines.end();
}

bool waitForLog(testhost::FakeHost& host, const std::string& entry) {
    auto deadline = std::chrono::steady_clock::now() + kReplyBound;
    while (!logHas(host, entry)) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

// One load-to-unload cycle that brings the plug-in into `row`'s state before onClose.
void runCycle(const CloseCase& row) {
    SCOPED_TRACE(row.name);
    TempDir settings;
    const int port = freeLoopbackPort();
    writeFile(settings.file("remotectrl.ini"), "[Settings]\nPort=" + std::to_string(port) + "\n");
    testhost::FakeDevice device;
    device.blocking = true;
    testhost::FakeHost host;
    host.settingsDir = settings.path();
    host.devices = {&device};
    host.filtered = {&device};
    std::unique_ptr<PortBlocker> blocker;
    if (row.state == AtClose::PortTaken) {
        blocker = std::make_unique<PortBlocker>(port);
        ASSERT_TRUE(blocker->listening());
    }
    const std::string logEntry = "remotectrl|0|" + cannotListenMessage(port);

    void* module = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = reinterpret_cast<zn::GetPluginFunction>(dlsym(module, zn::kGetPluginSymbol));
    ASSERT_NE(getPlugin, nullptr);
    zn::IZnPlugin* plugin = getPlugin();
    EXPECT_EQ(plugin->initialize(&host), 0);

    RawClient first;
    RawClient second;
    std::string line;
    if (row.state == AtClose::PortTaken) {
        EXPECT_TRUE(waitForLog(host, logEntry));
    } else {
        ASSERT_TRUE(first.connect(port, kReplyBound));
        ASSERT_TRUE(first.sendLine("GUI_ISRUNNING(0)"));
        ASSERT_TRUE(first.readLine(line, kReplyBound));
        EXPECT_EQ(line, "NO");
    }
    switch (row.state) {
        case AtClose::NoClient:
            ASSERT_TRUE(first.sendLine("QUIT()"));
            ASSERT_TRUE(first.waitForClose(kReplyBound));
            break;
        case AtClose::RunningAcquisition:
            ASSERT_TRUE(first.sendLine("START(0,1,600,,10)"));
            ASSERT_TRUE(device.waitUntilRunning());
            break;
        case AtClose::ClientInBacklog:
            ASSERT_TRUE(second.connect(port, kReplyBound));
            ASSERT_TRUE(second.sendLine("GUI_ISRUNNING(0)"));
            break;
        case AtClose::IdleClient:
        case AtClose::PortTaken:
            break;
    }

    plugin->onClose();

    if (row.state != AtClose::NoClient && row.state != AtClose::PortTaken) {
        EXPECT_TRUE(first.waitForClose(kReplyBound)) << "the session outlived onClose";
    }
    if (row.state == AtClose::ClientInBacklog) {
        EXPECT_FALSE(second.readLine(line, kReplyBound)) << "a waiting client was served: " << line;
    }
    if (row.state == AtClose::RunningAcquisition) {
        EXPECT_EQ(device.aborts(), 1) << "onClose left the acquisition running";
    }
    EXPECT_EQ(logHas(host, logEntry), row.state == AtClose::PortTaken);
    EXPECT_EQ(dlclose(module), 0) << dlerror();
    // Still loaded, the next cycle would get the same, already closed, plug-in object.
    void* lingering = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_EQ(lingering, nullptr) << "the module stayed loaded";
    if (lingering != nullptr) dlclose(lingering);
}

TEST(ModuleUnload, TwentyCyclesLeaveNoThreadBehind) {
    // Sanitizer runtimes start helper threads of their own on first use.
    runCycle(kCloseCases[1]);
    const int threadsBefore = threadCount(0);
    ASSERT_GT(threadsBefore, 0);
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        const CloseCase& row = kCloseCases[cycle % std::size(kCloseCases)];
        runCycle(row);
        EXPECT_EQ(threadCount(0), threadsBefore)
            << "after cycle " << cycle << " (" << row.name << ")";
    }
}

}  // namespace
}  // namespace apps_test
