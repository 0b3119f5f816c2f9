// The plug-in module as a host that unloads modules sees it: a thread of the module that outlives
// onClose's bound keeps the module mapped, so the unload never frees code that runs.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <thread>

#include "apps/znhost/pluginloader.h"
#include "tests/plugin/fake_host.h"
#include "tests/support/files.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace testsupport;

long threadCount() {
    long count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/task"))
        ++count;
    return count;
}

// CTest runs each test in a process of its own: this one leaves the module pinned in its process.
TEST(ModulePin, AThreadThatOutlivesOnCloseKeepsTheModuleMapped) {
    TempDir settings;
    const int port = freeLoopbackPort();
    writeFile(settings.file("remotectrl.ini"), "[Settings]\nPort=" + std::to_string(port) + "\n");
    testhost::FakeDevice device;
    device.blocking = true;
    device.endDelayMillis = 2000;  // past onClose's one-second bound
    testhost::FakeHost host;
    host.settingsDir = settings.path();
    host.devices = host.filtered = {&device};
    std::thread([] {}).join();  // a sanitizer starts a thread of its own at the first thread
    const long threadsBefore = threadCount();

    znhost::LoadedPlugin loaded;
    std::string error;
    ASSERT_TRUE(znhost::loadPlugin(PLUGIN_PATH, loaded, error)) << error;
    loaded.plugin->initialize(&host);
    RawClient client;
    ASSERT_TRUE(client.connect(port, kStartBound) && client.sendLine("START(0,1,1,f,10)"));
    ASSERT_TRUE(device.waitUntilRunning());
    loaded.plugin->onClose();
    EXPECT_EQ(dlclose(loaded.module), 0) << dlerror();
    void* stillMapped = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(stillMapped, nullptr) << "unloaded while its acquisition thread ran";
    if (stillMapped != nullptr) dlclose(stillMapped);
    // The acquisition thread returns into the module and logs to the host, which must outlive it.
    for (int i = 0; i < 1000 && threadCount() > threadsBefore; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(threadCount(), threadsBefore);
    // Read under the host's lock, which also orders the thread's last entry before the host goes.
    EXPECT_EQ(host.logged.lines().back(),
              "remotectrl|0|Acquisition on device 0 ended with ERROR: "
              "ACQUISITION FAILED after its client left");
    device.release();  // likewise for the device's own lock
}

}  // namespace
