// znhost: a stand-in for the device-control host. Loads plug-in modules, hands them a simulated
// host core with simulated devices, and runs until SIGINT or SIGTERM.
//
// Exit status: 0 after a stop signal, 2 on a usage, config, folder or plug-in load error (nothing
// has run then). SIGPIPE keeps its default action on purpose: a plug-in must survive clients that
// vanish without help from the host, and a host that ignored the signal would hide the fault.
// Only znhost's own output thread blocks it, for itself (see lineout.h).
// "ready" means serving: it follows one "listening on ADDRESS:PORT" line per listening socket,
// printed once every plug-in has opened one, a plug-in has logged (it cannot listen: "not
// listening: see the log") or 5 s have passed ("not listening after 5 s").
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "apps/znhost/config.h"
#include "apps/znhost/lineout.h"
#include "apps/znhost/listeners.h"
#include "apps/znhost/options.h"
#include "apps/znhost/pluginloader.h"
#include "apps/znhost/portsettings.h"
#include "apps/znhost/simhost.h"
#include "apps/znhost/standardfds.h"
#include "apps/znhost/trace.h"

using namespace znhost;

namespace {

constexpr int kFailureExit = 2;
constexpr std::chrono::milliseconds kDeviceShutdownBound{2000};
constexpr std::chrono::milliseconds kListenBound{5000};
// The last lines' wait for a reader; a reader that never comes must not keep znhost alive.
constexpr std::chrono::milliseconds kOutputFlushBound{1000};

int fail(const std::string& message) {
    std::fprintf(stderr, "znhost: %s\n", message.c_str());
    return kFailureExit;
}

void printLine(const std::string& text) {
    writeLine(STDOUT_FILENO, text);
}

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Threads inherit the signal mask of their creator. Blocking the stop signals before any plug-in
// code runs keeps them away from every plug-in thread, so that sigwait() in main receives them
// and the shutdown runs on the host's own thread, as the real host does it.
sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void waitForStopSignal(const sigset_t& signals) {
    int received = 0;
    while (sigwait(&signals, &received) != 0) {
    }
}

bool loadAll(const std::vector<std::string>& paths, std::vector<LoadedPlugin>& plugins,
             std::string& error) {
    for (const std::string& path : paths) {
        LoadedPlugin loaded;
        if (!loadPlugin(path, loaded, error)) return false;
        plugins.push_back(loaded);
    }
    return true;
}

void startAll(SimHost& host, const std::vector<LoadedPlugin>& plugins) {
    for (const LoadedPlugin& loaded : plugins) {
        int32_t result = loaded.plugin->initialize(&host);
        if (result != 0)
            writeLogLine(kHostLogSource, std::string(loaded.plugin->name()) +
                                             ": initialize returned " + std::to_string(result));
    }
    for (const LoadedPlugin& loaded : plugins)
        loaded.plugin->onStart();
}

void announceReady(const SimHost& host, size_t pluginCount, unsigned loggedBefore) {
    bool logged = false;
    std::vector<std::string> addresses = waitForListeners(
        pluginCount, [&] { return logged = host.loggedLines() != loggedBefore; }, kListenBound);
    for (const std::string& address : addresses)
        printLine("listening on " + address);
    if (addresses.size() < pluginCount)
        printLine(logged ? "not listening: see the log"
                         : "not listening after " + std::to_string(kListenBound.count() / 1000) +
                               " s");
    printLine("ready");
}

void closeAll(const std::vector<LoadedPlugin>& plugins) {
    for (auto it = plugins.rbegin(); it != plugins.rend(); ++it)
        it->plugin->onClose();
}

}  // namespace

int main(int argc, char** argv) {
    // First of all (standardfds.h); a failure shows only where standard error is open.
    if (!openClosedStandardDescriptors())
        return fail(std::string("cannot open /dev/null: ") + std::strerror(errno));
    Options options;
    std::string error;
    if (!parseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "znhost: %s (see znhost --help)\n", error.c_str());
        return kFailureExit;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? usageText() : "znhost " REMOTECTRL_VERSION "\n", stdout);
        return 0;
    }
    HostConfig config = defaultHostConfig();
    if (!options.configFile.empty() && !loadHostConfig(options.configFile, config, error))
        return fail("config error: " + error);
    if (!isDirectory(options.settingsDir))
        return fail("settings folder " + options.settingsDir + " is not a folder");
    if (!isDirectory(options.dataDir))
        return fail("data folder " + options.dataDir + " is not a folder");
    if (options.plugins.empty()) options.plugins.push_back(defaultPluginPath());
    PortSettings portSettings;
    if (options.port != 0) {
        if (!portSettings.create(options.settingsDir, options.port, error)) return fail(error);
        options.settingsDir = portSettings.dir();
    }

    sigset_t stopSignals = blockStopSignals();
    startOutputThread();
    std::vector<LoadedPlugin> plugins;
    if (!loadAll(options.plugins, plugins, error)) return fail(error);
    // Never deleted: a plug-in thread that outlives onClose() may still call into the host.
    static Tracer* tracer = new Tracer(options.trace, STDERR_FILENO);
    static SimHost* host = new SimHost(config, options.settingsDir, options.dataDir, *tracer);
    for (const LoadedPlugin& loaded : plugins) {
        host->addPlugin(loaded.plugin);
        printLine(std::string("loaded ") + loaded.plugin->name() + ": " +
                  loaded.plugin->description());
    }
    unsigned loggedBeforeStart = host->loggedLines();
    startAll(*host, plugins);
    announceReady(*host, plugins.size(), loggedBeforeStart);

    waitForStopSignal(stopSignals);
    closeAll(plugins);
    if (!host->shutDownDevices(kDeviceShutdownBound))
        writeLogLine(kHostLogSource, "an acquisition did not end in time");
    printLine("closed");
    flushOutput(kOutputFlushBound);
    return 0;
}
