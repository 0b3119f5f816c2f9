// TLS beside plain TCP in one run: the plug-in module in the no-op bench host, one process with a
// plain port and one with a TLS port (the test PKI's certificates, client certificate required),
// both measured with the tests' clients, which differ in the transport only:
//   "round trip"  one GUI_ISRUNNING(0) and its reply on an open connection;
//   "handshake"   connect and, on the TLS port, the client's side of the handshake (in TLS 1.3
//                 the server checks the client's certificate after that, so see the next row);
//   "connection"  connect, the TLS handshake on the TLS port, the first reply, close;
//   "rcclient"    one rcclient process with that query, from spawn to exit (over TLS with the
//                 test PKI's client files).
// Values are p50 latencies (medians over the repetitions); the TLS rows' ratio is TLS ÷ plain.
// Targets: the TLS round trip within 2x plain, the handshake and the whole TLS connection under
// 5 ms. Never asserts.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_host.h"
#include "bench/programs.h"
#include "bench/stats.h"
#include "bench/table.h"
#include "bench/znhost_server.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_client.h"

namespace bench {
namespace {

using testsupport::ChildProcess;
using testsupport::RawClient;
using testsupport::TlsClient;

constexpr int kRepetitions = 7;
constexpr int kRoundTrips = 5000;
constexpr int kConnections = 200;
constexpr int kProcesses = 100;
constexpr int kWarmUpProcesses = 3;
constexpr double kProcessBudgetSeconds = 10.0;
constexpr double kProcessTimeout = 10.0;
constexpr unsigned kServerLifetimeSeconds = 300;  // a server's last resort
constexpr const char* kQuery = "GUI_ISRUNNING(0)";
constexpr const char* kReply = "NO";

struct Server {
    const char* name;
    int port;
    std::string failure;  // why it does not serve; empty when it does
};

// The module in the bench host, in a process of its own, with `lines` beside the port.
Server startServer(const char* name, const std::string& folder, const std::string& lines,
                   ChildProcess& process) {
    Server server{name, testsupport::freeLoopbackPort(), ""};
    testsupport::writeFile(folder + "/remotectrl.ini",
                           "[Settings]\nPort=" + std::to_string(server.port) + "\n" + lines);
    if (!process.fork([=] {
            alarm(kServerLifetimeSeconds);
            BenchHost host(folder);
            void* module = nullptr;
            std::string error;
            if (loadPlugin(defaultModulePath(), host, module, error) == nullptr) return 1;
            for (;;)
                pause();  // serves on the plug-in's own thread until stopped
        }))
        server.failure = "cannot fork";
    return server;
}

std::unique_ptr<RawClient> newClient(bool tls) {
    if (tls) return std::make_unique<TlsClient>();
    return std::make_unique<RawClient>();
}

// Seconds per round trip on one connection, or none when a reply did not come.
std::vector<double> roundTrips(int port, bool tls) {
    const std::unique_ptr<RawClient> client = newClient(tls);
    if (!client->connect(port, testsupport::kStartBound)) return {};
    std::vector<double> seconds;
    for (int i = 0; i < kRoundTrips; ++i) {
        const double start = monotonicSeconds();
        if (client->request(kQuery) != kReply) return {};
        seconds.push_back(monotonicSeconds() - start);
    }
    return seconds;
}

// Seconds from connect to the end of the handshake, or to the first reply, one connection after
// another; every connection must be served.
std::vector<double> setUps(int port, bool tls, bool untilReply) {
    std::vector<double> seconds;
    for (int i = 0; i < kConnections; ++i) {
        const std::unique_ptr<RawClient> client = newClient(tls);
        const double start = monotonicSeconds();
        if (!client->connect(port, testsupport::kStartBound)) return {};
        const double connected = monotonicSeconds();
        if (client->request(kQuery) != kReply) return {};
        seconds.push_back((untilReply ? monotonicSeconds() : connected) - start);
    }
    return seconds;
}

std::vector<double> handshakes(int port, bool tls) {
    return setUps(port, tls, false);
}

std::vector<double> connections(int port, bool tls) {
    return setUps(port, tls, true);
}

std::vector<double> rcclientProcesses(int port, bool tls) {
    std::vector<std::string> argv = {programDir() + "/rcclient", "--port", std::to_string(port)};
    if (tls)
        argv.insert(argv.end(), {"--ca", testsupport::pkiFile("ca.pem"), "--cert",
                                 testsupport::pkiFile("client.pem"), "--key",
                                 testsupport::pkiFile("client.key")});
    argv.push_back(kQuery);
    const Run run =
        runOneShots({argv, kWarmUpProcesses, kProcesses, kProcessBudgetSeconds, kProcessTimeout});
    return run.failure.empty() ? run.latencies : std::vector<double>{};
}

// Medians over the repetitions of each run's p50 and p99, in seconds; NaN when a run failed.
struct Figures {
    double p50;
    double p99;
};

Figures measure(std::vector<double> (*run)(int, bool), const Server& server, bool tls) {
    std::vector<double> p50s, p99s;
    for (int repetition = 0; server.failure.empty() && repetition < kRepetitions; ++repetition) {
        const std::vector<double> seconds = run(server.port, tls);
        if (seconds.empty()) return Figures{kNoFigure, kNoFigure};
        p50s.push_back(percentile(seconds, 0.50));
        p99s.push_back(percentile(seconds, 0.99));
    }
    return Figures{median(p50s), median(p99s)};
}

std::string latencies(const Figures& figures, const Server& server) {
    if (!server.failure.empty()) return server.failure;
    return "p50 " + figureText(figures.p50 * 1e6) + " p99 " + figureText(figures.p99 * 1e6) + " us";
}

// A figure's scale from seconds and its unit's name.
struct Unit {
    double perSecond;
    const char* name;
};

// One benchmark over plain TCP, then over TLS with its ratio to plain and its target.
void compare(const char* benchmark, std::vector<double> (*run)(int, bool), const Server& plain,
             const Server& tls, Unit unit, Target target) {
    const Figures plainFigures = measure(run, plain, false);
    const Figures tlsFigures = measure(run, tls, true);
    printRow(Row{benchmark, plain.name, plainFigures.p50 * unit.perSecond, unit.name,
                 latencies(plainFigures, plain)});
    Row tlsRow{benchmark, tls.name, tlsFigures.p50 * unit.perSecond, unit.name,
               latencies(tlsFigures, tls)};
    tlsRow.ratio = tlsFigures.p50 / plainFigures.p50;
    tlsRow.target = target;
    printRow(tlsRow);
}

void run(bool header) {
    testsupport::TempDir dir;
    const std::string plainFolder = dir.file("plain"), tlsFolder = dir.file("tls");
    using testsupport::pkiFile;
    const std::string tlsLines = "TlsCertificate=" + pkiFile("server.pem") +
                                 "\nTlsKey=" + pkiFile("server.key") +
                                 "\nTlsClientCA=" + pkiFile("ca.pem") + "\n";
    std::vector<ChildProcess> processes(2);
    const bool folders =
        mkdir(plainFolder.c_str(), 0700) == 0 && mkdir(tlsFolder.c_str(), 0700) == 0;
    const Server plain = folders ? startServer("plain TCP", plainFolder, "", processes[0])
                                 : Server{"plain TCP", -1, "cannot create " + dir.path()};
    const Server tls = folders ? startServer("TLS 1.3", tlsFolder, tlsLines, processes[1])
                               : Server{"TLS 1.3", -1, "cannot create " + dir.path()};
    if (header) printHeader();

    compare("round trip", roundTrips, plain, tls, Unit{1e6, "us"}, ratioAtMost(2.0));
    compare("handshake", handshakes, plain, tls, Unit{1e3, "ms"}, valueBelow(5.0));
    compare("connection", connections, plain, tls, Unit{1e3, "ms"}, valueBelow(5.0));
    compare("rcclient process", rcclientProcesses, plain, tls, Unit{1e3, "ms"}, Target{});

    for (ChildProcess& process : processes)
        stopServer(process);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::run(argc > 1 && std::strcmp(argv[1], "--header") == 0);
    return 0;
}
