// How long onClose takes. The module is loaded with dlopen into the bench host, initialized,
// closed and unloaded again, kCycles times for each case:
//   "in accept"    the server thread waits for a connection;
//   "idle client"  a client is connected, has had one reply and then sends nothing.
// Prints table rows (median and max); never asserts.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_host.h"
#include "bench/loopback.h"
#include "bench/stats.h"
#include "bench/table.h"
#include "tests/support/files.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"

namespace bench {
namespace {

constexpr int kCycles = 20;
constexpr double kIoTimeout = 5.0;
constexpr double kListenTimeout = 5.0;
constexpr double kTargetMilliseconds = 200.0;
constexpr int kListenState = 0x0A;  // TCP_LISTEN as /proc/net/tcp shows it

// True once some socket listens on `port`, as the kernel's table of TCP sockets shows.
bool isListening(int port) {
    FILE* table = std::fopen("/proc/net/tcp", "r");
    if (table == nullptr) return false;
    char line[512];
    bool listening = false;
    while (!listening && std::fgets(line, sizeof line, table) != nullptr) {
        unsigned localPort = 0, state = 0;
        if (std::sscanf(line, " %*u: %*x:%x %*x:%*x %x", &localPort, &state) == 2)
            listening = static_cast<int>(localPort) == port && state == kListenState;
    }
    std::fclose(table);
    return listening;
}

bool waitUntilListening(int port) {
    const double deadline = monotonicSeconds() + kListenTimeout;
    while (!isListening(port)) {
        if (monotonicSeconds() >= deadline) return false;
        usleep(1000);
    }
    return true;
}

// A client whose one command was answered, so the server thread is inside its session.
int connectIdleClient(int port) {
    const int fd = connectLoopback(port, kIoTimeout);
    if (fd < 0) return -1;
    LineReader reader(fd);
    std::string reply;
    const char request[] = "GUI_ISRUNNING(0)\n";
    if (!sendAll(fd, request, sizeof request - 1) || !reader.readLine(reply)) {
        close(fd);
        return -1;
    }
    return fd;
}

// One load/initialize/onClose/unload cycle; the onClose duration in seconds, or the failure.
double closeOnce(const std::string& modulePath, const testsupport::TempDir& dir, bool withClient,
                 std::string& failure) {
    const int port = testsupport::freeLoopbackPort();
    // A fresh port per cycle: the previous cycle's closed connection may still hold its own.
    const std::string settings = "[Settings]\nPort=" + std::to_string(port) + "\n";
    testsupport::writeFile(dir.file("remotectrl.ini"), settings);
    if (testsupport::readFile(dir.file("remotectrl.ini")) != settings) {
        failure = "cannot write remotectrl.ini";
        return kNoFigure;
    }
    BenchHost host(dir.path());
    void* module = nullptr;
    zn::IZnPlugin* plugin = loadPlugin(modulePath, host, module, failure);
    if (plugin == nullptr) return kNoFigure;
    int client = -1;
    if (!waitUntilListening(port))
        failure = "the server did not listen";
    else if (withClient && (client = connectIdleClient(port)) < 0)
        failure = "the idle client got no reply";
    const double start = monotonicSeconds();
    plugin->onClose();
    const double seconds = monotonicSeconds() - start;
    if (client >= 0) close(client);
    dlclose(module);
    return failure.empty() ? seconds : kNoFigure;
}

void measure(const std::string& modulePath, const testsupport::TempDir& dir, bool withClient) {
    std::vector<double> durations;
    std::string failure;
    for (int cycle = 0; cycle < kCycles && failure.empty(); ++cycle)
        durations.push_back(closeOnce(modulePath, dir, withClient, failure) * 1e3);
    Row row{withClient ? "onClose, idle client" : "onClose, in accept", "plug-in", kNoFigure, "ms"};
    row.target = valueBelow(kTargetMilliseconds);
    if (failure.empty()) {
        row.value = median(durations);
        row.detail = "max " + figureText(maximum(durations)) + " ms of " + std::to_string(kCycles);
    } else {
        row.detail = failure;
    }
    printRow(row);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--header") == 0) bench::printHeader();
    const testsupport::TempDir dir;
    const std::string modulePath = bench::defaultModulePath();
    bench::measure(modulePath, dir, false);
    bench::measure(modulePath, dir, true);
    return 0;
}
