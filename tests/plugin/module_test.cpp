// The built module as the host sees it: one exported symbol, one named plug-in object, and no
// thread of ours left running once the host has closed and unloaded it.
#include <dlfcn.h>

#include <cstdio>
#include <set>

#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

std::set<std::string> exportedSymbols(const std::string& path) {
    std::set<std::string> symbols;
    FILE* pipe = popen(("nm -D --defined-only '" + path + "'").c_str(), "r");
    char name[400];
    while (pipe != nullptr && std::fscanf(pipe, "%*s %*s %399s", name) == 1)
        symbols.insert(name);
    if (pipe != nullptr) pclose(pipe);
    return symbols;
}

TEST(Module, ExportsOnlyTheEntryFunction) {
    EXPECT_EQ(exportedSymbols(REMOTECTRL_MODULE_PATH), std::set<std::string>{"znGetPlugin"});
}

// Loads the module, checks its object, serves one command, closes and unloads it.
void loadServeCloseUnload() {
    TempDir dir;
    const int port = freeLoopbackPort();
    writePortSetting(dir.path(), std::to_string(port));
    FakeDevice device;
    FakeHost host;
    host.settingsDir = dir.path();
    host.devices = {&device};
    void* module = dlopen(REMOTECTRL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = reinterpret_cast<zn::GetPluginFunction>(dlsym(module, zn::kGetPluginSymbol));
    ASSERT_NE(getPlugin, nullptr);
    zn::IZnPlugin* plugin = getPlugin();
    EXPECT_EQ(getPlugin(), plugin);
    EXPECT_STREQ(plugin->name(), "remotectrl");
    EXPECT_STREQ(plugin->description(), "Plugin that adds tcp/ip interface");
    EXPECT_EQ(plugin->privateInterface(), nullptr);
    plugin->initialize(&host);
    {
        Client client;
        ASSERT_TRUE(client.connect(port, kStartBound));
        EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO");
    }
    plugin->onClose();
    dlclose(module);
}

TEST(Module, LoadServeCloseUnloadCyclesLeaveNoThreadBehind) {
    loadServeCloseUnload();  // sanitizer runtimes start helper threads of their own on first use
    const int threadsBefore = threadCount();
    for (int cycle = 1; cycle <= 3; ++cycle)
        loadServeCloseUnload();
    EXPECT_EQ(threadCount(), threadsBefore);
}

}  // namespace
}  // namespace testhost
