#include "bench/znhost_server.h"

#include <signal.h>

#include <chrono>
#include <vector>

#include "bench/bench_host.h"
#include "tests/support/files.h"

namespace bench {

namespace {

constexpr std::chrono::milliseconds kReadyTimeout{10000};
constexpr std::chrono::milliseconds kStopTimeout{3000};

}  // namespace

std::string startZnhost(const std::string& folder, int port, testsupport::ChildProcess& process) {
    const std::vector<std::string> argv{programDir() + "/znhost",
                                        "--port",
                                        std::to_string(port),
                                        "--settings-dir",
                                        folder,
                                        "--data-dir",
                                        folder};
    const std::string output = folder + "/znhost.out";
    if (!process.start(argv, output, folder + "/znhost.log") ||
        !testsupport::waitForFileText(output, "ready\n", kReadyTimeout))
        return "znhost did not start";
    return "";
}

void stopServer(testsupport::ChildProcess& process) {
    process.sendSignal(SIGTERM);
    if (!process.waitForExit(kStopTimeout)) process.kill();
}

}  // namespace bench
