// The built module as the host sees it: one exported symbol, one plug-in object, clean unloading.
#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <string>

#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

std::set<std::string> exportedSymbols(const std::string& path) {
    std::set<std::string> symbols;
    std::string command = "nm -D --defined-only '" + path + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return symbols;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        // "ADDRESS TYPE NAME"
        char name[400];
        if (std::sscanf(line, "%*s %*s %399s", name) == 1) symbols.insert(name);
    }
    pclose(pipe);
    return symbols;
}

TEST(Module, ExportsOnlyTheEntryFunction) {
    EXPECT_EQ(exportedSymbols(REMOTECTRL_MODULE_PATH), std::set<std::string>{"znGetPlugin"});
}

TEST(Module, HandsOutOneNamedPluginObject) {
    void* module = dlopen(REMOTECTRL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = reinterpret_cast<zn::GetPluginFunction>(dlsym(module, zn::kGetPluginSymbol));
    ASSERT_NE(getPlugin, nullptr);
    zn::IZnPlugin* plugin = getPlugin();
    EXPECT_EQ(getPlugin(), plugin);
    EXPECT_STREQ(plugin->name(), "remotectrl");
    EXPECT_STREQ(plugin->description(), "Plugin that adds tcp/ip interface");
    EXPECT_EQ(plugin->privateInterface(), nullptr);
    dlclose(module);
}

// Loads the module, serves one command, closes and unloads it.
void loadServeCloseUnload(int cycle) {
    TempDir dir;
    int port = freeLoopbackPort();
    writeFile(dir.path() + "/remotectrl.ini", "[Settings]\nPort=" + std::to_string(port) + "\n");
    FakeDevice device;
    FakeHost host;
    host.settingsDir = dir.path();
    host.devices = {&device};
    host.filtered = {&device};

    void* module = dlopen(REMOTECTRL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = reinterpret_cast<zn::GetPluginFunction>(dlsym(module, zn::kGetPluginSymbol));
    zn::IZnPlugin* plugin = getPlugin();
    plugin->initialize(&host);
    {
        Client client;
        ASSERT_TRUE(client.connect(port)) << "cycle " << cycle;
        EXPECT_EQ(client.exchange("GUI_ISRUNNING(0)"), "NO") << "cycle " << cycle;
    }
    plugin->onClose();
    dlclose(module);
}

TEST(Module, LoadServeCloseUnloadCyclesLeaveNoThreadBehind) {
    loadServeCloseUnload(0);  // sanitizer runtimes start helper threads of their own on first use
    int threadsBefore = threadCount();
    for (int cycle = 1; cycle <= 5; ++cycle)
        loadServeCloseUnload(cycle);
    EXPECT_EQ(threadCount(), threadsBefore);
}

}  // namespace
}  // namespace testhost
