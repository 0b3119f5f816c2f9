// Command latency and throughput of the plug-in inside znhost, against the two reference servers
// of reference_server.h, all over 127.0.0.1. A fourth server, the plug-in module loaded into the
// no-op bench host, shows how much of the plug-in row is znhost's own simulation work. Prints
// table rows labelled "pinned" when the process may run on one CPU only (bench/run starts it a
// second time under `taskset -c 0`; the servers inherit the affinity) and "unpinned" otherwise.
// Never asserts: a figure that could not be taken prints as n/a with the reason in its detail.
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/bench_host.h"
#include "bench/loopback.h"
#include "bench/reference_server.h"
#include "bench/round_trip.h"
#include "bench/stats.h"
#include "bench/table.h"
#include "bench/znhost_server.h"
#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"

namespace bench {
namespace {

using testsupport::ChildProcess;
using testsupport::TempDir;

// Medians over this many runs; other work on the machine hits single runs, not the median.
constexpr int kRoundTripRepetitions = 9;
constexpr int kPipelinedRepetitions = 7;
constexpr int kAcquisitionRepetitions = 3;
constexpr int kWarmUpRoundTrips = 1000;
constexpr int kRoundTrips = 20000;
constexpr int kPipelinedLines = 200000;
constexpr size_t kPipelinedWrite = 64 * 1024;
constexpr int kWarmUpAcquisitions = 10;
constexpr int kAcquisitions = 200;

constexpr double kPipelinedTimeout = 30.0;        // the reply after the whole pipelined batch
constexpr unsigned kServerLifetimeSeconds = 300;  // a reference server's last resort

constexpr const char* kIsRunning = "GUI_ISRUNNING(0)\n";
constexpr const char* kSetFile = "GUI_SETFILE(0,f.txt)\n";
constexpr const char* kStart = "START(0,1,0,,10)\n";

struct Server {
    Server(std::string name, int port, std::string failure = "")
        : name(std::move(name)), port(port), failure(std::move(failure)) {}

    std::string name;
    int port;
    std::string failure;  // why it is not running; empty when it is
};

bool isPinned() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    return sched_getaffinity(0, sizeof cpus, &cpus) == 0 && CPU_COUNT(&cpus) == 1;
}

bool isRunningReply(const std::string& reply) {
    return reply == "NO" || reply == "YES";
}

Run roundTrips(int port) {
    return exchange(port, {kIsRunning, 1, isRunningReply, kWarmUpRoundTrips, kRoundTrips});
}

Run acquisitions(int port) {
    return exchange(port, {kStart, 1, [](const std::string& reply) { return reply == "OK"; },
                           kWarmUpAcquisitions, kAcquisitions});
}

const std::string& pipelinedPayload() {
    static const std::string payload = [] {
        std::string lines;
        for (int i = 0; i < kPipelinedLines; ++i)
            lines += kSetFile;
        return lines + kIsRunning;
    }();
    return payload;
}

// The whole batch in large writes, then the one reply that says the server has read it all.
Run pipelined(int port) {
    const int fd = connectWhenListening(port);
    if (fd < 0) return Run::failed("cannot connect: " + std::string(std::strerror(errno)));
    Run run;
    LineReader reader(fd);
    const std::string& payload = pipelinedPayload();
    const double start = monotonicSeconds();
    bool sent = true;
    for (size_t offset = 0; sent && offset < payload.size(); offset += kPipelinedWrite)
        sent = sendAll(fd, payload.data() + offset,
                       std::min(kPipelinedWrite, payload.size() - offset));
    timeval limit{static_cast<time_t>(kPipelinedTimeout), 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string reply;
    if (!sent || !reader.readLine(reply) || !isRunningReply(reply))
        run.failure = sent ? "no reply after the batch" : "send failed";
    else
        run.perSecond = (kPipelinedLines + 1) / (monotonicSeconds() - start);
    close(fd);
    return run;
}

// Medians over the repetitions of each run's rate, p50 and p99.
struct Summary {
    std::string failure;
    double perSecond = kNoFigure;
    double p50 = kNoFigure;
    double p99 = kNoFigure;
};

Summary summarize(const std::vector<Run>& runs) {
    std::vector<double> rates, p50s, p99s;
    for (const Run& run : runs) {
        if (!run.failure.empty()) return Summary{run.failure, kNoFigure, kNoFigure, kNoFigure};
        rates.push_back(run.perSecond);
        if (run.latencies.empty()) continue;
        p50s.push_back(percentile(run.latencies, 0.50));
        p99s.push_back(percentile(run.latencies, 0.99));
    }
    return Summary{"", median(rates), median(p50s), median(p99s)};
}

std::string latencyDetail(const Summary& summary, double scale, const char* unit) {
    if (!summary.failure.empty()) return summary.failure;
    if (std::isnan(summary.p50)) return "";
    char text[64];
    std::snprintf(text, sizeof text, "p50 %s p99 %s %s", figureText(summary.p50 * scale).c_str(),
                  figureText(summary.p99 * scale).c_str(), unit);
    return text;
}

// Runs `measure` on every server, interleaved so that drift over time spreads evenly.
std::vector<Summary> measureAll(const std::vector<Server>& servers, int repetitions,
                                const std::function<Run(int)>& measure) {
    std::vector<std::vector<Run>> runs(servers.size());
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        for (size_t i = 0; i < servers.size(); ++i)
            runs[i].push_back(servers[i].failure.empty() ? measure(servers[i].port)
                                                         : Run::failed(servers[i].failure));
    }
    std::vector<Summary> summaries;
    for (const std::vector<Run>& serverRuns : runs)
        summaries.push_back(summarize(serverRuns));
    return summaries;
}

// The servers in the order of their rows; the plug-in in znhost is the one the ratios are for.
enum ServerIndex { kPlugin, kLimit, kSameIo, kPluginAlone, kServerCount };

// Each reference row carries the plug-in's figure divided by its own; the row of the plug-in in
// the no-op host says how it compares with same-io, to show what znhost's own work costs.
void printComparison(const std::string& benchmark, const std::vector<Server>& servers,
                     const std::vector<Summary>& summaries, const char* unit,
                     const std::vector<Target>& targets) {
    for (size_t i = 0; i < servers.size(); ++i) {
        Row row{benchmark, servers[i].name, summaries[i].perSecond, unit,
                latencyDetail(summaries[i], 1e6, "us")};
        if (i == kLimit || i == kSameIo) {
            row.ratio = summaries[kPlugin].perSecond / summaries[i].perSecond;
            row.target = targets[i];
        } else if (i == kPluginAlone && summaries[i].failure.empty()) {
            row.detail = figureText(summaries[i].perSecond / summaries[kSameIo].perSecond) +
                         " x same-io, no-op host";
        }
        printRow(row);
    }
}

// A settings folder of its own for each plug-in server, naming a port that was free.
Server prepareSettings(const std::string& name, const std::string& folder) {
    Server server{name, testsupport::freeLoopbackPort()};
    const std::string settings = "[Settings]\nPort=" + std::to_string(server.port) + "\n";
    if (mkdir(folder.c_str(), 0755) == 0)
        testsupport::writeFile(folder + "/remotectrl.ini", settings);
    if (testsupport::readFile(folder + "/remotectrl.ini") != settings)
        server.failure = "cannot write " + folder + "/remotectrl.ini";
    return server;
}

Server startPluginInZnhost(const TempDir& dir, ChildProcess& process) {
    Server server{"plug-in", testsupport::freeLoopbackPort()};
    const std::string folder = dir.file("znhost");
    server.failure = mkdir(folder.c_str(), 0755) == 0 ? startZnhost(folder, server.port, process)
                                                      : "cannot create " + folder;
    return server;
}

// The plug-in module loaded into the no-op bench host, in a process of its own like znhost.
Server startPluginAlone(const TempDir& dir, ChildProcess& process) {
    const std::string folder = dir.file("bench-host");
    Server server = prepareSettings("plug-in, no-op host", folder);
    if (server.failure.empty() && !process.fork([=] {
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

Server startReference(ReadStyle style, ChildProcess& process) {
    Server server{readStyleName(style), -1};
    const int listenFd = listenLoopback(5, server.port);
    if (listenFd < 0) return Server{server.name, -1, "cannot listen"};
    if (!process.fork([=] {
            alarm(kServerLifetimeSeconds);
            return serveReference(listenFd, style);
        }))
        server.failure = "cannot fork";
    close(listenFd);  // the child's copy keeps listening
    return server;
}

void run(bool header) {
    const bool pinned = isPinned();
    const std::string mode = pinned ? "pinned" : "unpinned";
    TempDir dir;
    std::vector<ChildProcess> processes(kServerCount);
    const std::vector<Server> servers{startPluginInZnhost(dir, processes[kPlugin]),
                                      startReference(ReadStyle::Limit, processes[kLimit]),
                                      startReference(ReadStyle::SameIo, processes[kSameIo]),
                                      startPluginAlone(dir, processes[kPluginAlone])};
    if (header) printHeader();

    printComparison("round trip, " + mode, servers,
                    measureAll(servers, kRoundTripRepetitions, roundTrips), "rt/s",
                    {Target{}, ratioAtLeast(pinned ? 0.75 : 0.9), Target{}, Target{}});
    printComparison("pipelined, " + mode, servers,
                    measureAll(servers, kPipelinedRepetitions, pipelined), "cmd/s",
                    {Target{}, Target{}, pinned ? ratioAtLeast(0.25) : Target{}, Target{}});

    std::vector<Summary> acquisition =
        measureAll({servers[kPlugin]}, kAcquisitionRepetitions, acquisitions);
    Row row{"acquisition reply, " + mode, "plug-in", acquisition[0].p50 * 1e3, "ms",
            latencyDetail(acquisition[0], 1e3, "ms")};
    row.target = valueBelow(1.0);
    printRow(row);

    for (ChildProcess& process : processes)
        stopServer(process);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::run(argc > 1 && std::strcmp(argv[1], "--header") == 0);
    return 0;
}
