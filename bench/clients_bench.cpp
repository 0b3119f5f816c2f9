// What one query costs as users make it: GUI_ISRUNNING(0) followed by the sync line over one
// connection, as every client sends it; Client.gui_is_running(0) of the Python package; the
// GuiIsRunning command of its Tango device server through a DeviceProxy; and one rcclient
// process. Each is measured beside the one-line round trip to the same plug-in, in the same run
// with the subjects interleaved, and its row carries its median divided by that round trip's.
//
// znhost serves everything but Tango. The Tango device server holds its connection for as long
// as it runs, and the plug-in serves one client at a time, so it gets a second znhost of its
// own with the same simulated devices. A starting Tango server looks the machine's addresses up
// by name, so Tango runs only where loopback is the only network interface (bench/run starts
// this program in such a namespace, with tests/python/isolated); elsewhere its row says why it
// is missing. Never asserts: a figure that could not be taken prints as n/a with the reason.
#include <net/if.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "bench/bench_host.h"
#include "bench/programs.h"
#include "bench/round_trip.h"
#include "bench/stats.h"
#include "bench/table.h"
#include "bench/znhost_server.h"
#include "protocol/replies.h"
#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"

namespace bench {
namespace {

using testsupport::ChildProcess;
using testsupport::TempDir;

// Every subject runs once per repetition, in turn; each of its runs stops after its count or
// after kBatchSeconds, so that a subject that waits 40 ms per query costs seconds, not minutes.
constexpr int kRepetitions = 5;
constexpr double kBatchSeconds = 1.0;
constexpr int kWarmUpRawQueries = 100;
constexpr int kRawQueries = 2000;
constexpr int kWarmUpClientQueries = 3;
constexpr int kClientQueries = 1000;
constexpr int kProcessQueries = 200;

constexpr double kWorkerTimeout = 60.0;   // one batch, warm-up and a DeviceProxy's set-up
constexpr double kProcessTimeout = 10.0;  // one rcclient process
constexpr std::chrono::milliseconds kTangoStartTimeout{30000};
constexpr double kMillisecondsPerSecond = 1e3;

constexpr double kSyncRatioBound = 2.0;
constexpr double kPythonMedianBoundMs = 0.3;

constexpr const char* kQuery = "GUI_ISRUNNING(0)";
constexpr const char* kTangoInstance = "bench";
constexpr const char* kTangoDevice = "bench/remotectrl/0";
constexpr const char* kTangoReady = "Ready to accept request";

// A subject's runs: every one must succeed for its row to have figures.
struct Subject {
    Subject(std::string name, Target target, std::function<Run()> measure)
        : name(std::move(name)), target(target), measure(std::move(measure)) {}

    std::string name;
    Target target;
    std::function<Run()> measure;
    std::vector<Run> runs;
};

bool isQueryAnswer(const std::string& reply) {
    return reply == protocol::kReplyNo || reply == protocol::kReplyYes;
}

bool isQueryAnswerThenSync(const std::string& replies) {
    const std::string::size_type end = replies.find('\n');
    return end != std::string::npos && isQueryAnswer(replies.substr(0, end)) &&
           replies.substr(end + 1) == protocol::kSyncReply;
}

Run oneLine(int port) {
    static const std::string request = std::string(kQuery) + "\n";
    return exchange(
        port, {request.c_str(), 1, isQueryAnswer, kWarmUpRawQueries, kRawQueries, kBatchSeconds});
}

Run withSync(int port) {
    static const std::string request = std::string(kQuery) + "\n" + protocol::kSyncCommand + "\n";
    return exchange(port, {request.c_str(), 2, isQueryAnswerThenSync, kWarmUpClientQueries,
                           kRawQueries, kBatchSeconds});
}

std::string lastLine(const std::string& path) {
    const std::vector<std::string> lines = testsupport::splitLines(testsupport::readFile(path));
    return lines.empty() ? "no output" : lines.back();
}

// One batch of the worker (query_worker.py): "SUBJECT TARGET WARM_UP COUNT SECONDS".
Run workerBatch(Worker& worker, const std::string& subject, const std::string& target) {
    std::ostringstream request;
    request << subject << ' ' << target << ' ' << kWarmUpClientQueries << ' ' << kClientQueries
            << ' ' << kBatchSeconds;
    std::string answer;
    if (!worker.request(request.str(), answer))
        return Run::failed("no answer from the worker: " + lastLine(worker.stderrPath()));
    std::istringstream words(answer);
    std::string status;
    words >> status;
    if (status != "ok") return Run::failed(answer);
    Run run;
    for (double seconds = 0.0; words >> seconds;)
        run.latencies.push_back(seconds);
    return run;
}

Run rcclientProcesses(int port) {
    return runOneShots({{programDir() + "/rcclient", "--port", std::to_string(port), kQuery},
                        kWarmUpClientQueries,
                        kProcessQueries,
                        kBatchSeconds,
                        kProcessTimeout});
}

bool onlyLoopback() {
    struct if_nameindex* interfaces = if_nameindex();
    if (interfaces == nullptr) return false;
    bool loopbackOnly = true;
    for (const struct if_nameindex* entry = interfaces; entry->if_index != 0; ++entry)
        loopbackOnly = loopbackOnly && std::strcmp(entry->if_name, "lo") == 0;
    if_freenameindex(interfaces);
    return loopbackOnly;
}

std::string makeFolder(const std::string& folder) {
    return mkdir(folder.c_str(), 0755) == 0 ? "" : "cannot create " + folder;
}

// RemoteCtrlDS as README.md starts it without a database: its one device's Port property in a
// property file, clients reaching it at tango://127.0.0.1:TANGO_PORT/DEVICE#dbase=no.
std::string startTangoServer(const std::string& folder, int hostPort, int tangoPort,
                             ChildProcess& process) {
    const std::string properties = folder + "/bench.db";
    testsupport::writeFile(properties, "RemoteCtrlDS/" + std::string(kTangoInstance) +
                                           "/DEVICE/RemoteCtrl: \"" + kTangoDevice + "\"\n" +
                                           kTangoDevice + "->Port: " + std::to_string(hostPort) +
                                           "\n");
    const std::vector<std::string> argv{REMOTECTRL_PYTHON3,
                                        "-m",
                                        "remotectrl.tango",
                                        kTangoInstance,
                                        "-file=" + properties,
                                        "-ORBendPoint",
                                        "giop:tcp:127.0.0.1:" + std::to_string(tangoPort)};
    const std::string output = folder + "/tango.out";
    if (!process.start(argv, output, folder + "/tango.log") ||
        !testsupport::waitForFileText(output, kTangoReady, kTangoStartTimeout))
        return "Tango server did not start: " + lastLine(folder + "/tango.log");
    return "";
}

std::string tangoUrl(int tangoPort) {
    return "tango://127.0.0.1:" + std::to_string(tangoPort) + "/" + kTangoDevice + "#dbase=no";
}

// Every latency of every run, pooled: a run that the batch time cut short holds few samples.
std::vector<double> pooledLatencies(const Subject& subject, std::string& failure) {
    std::vector<double> latencies;
    for (const Run& run : subject.runs) {
        if (!run.failure.empty()) failure = run.failure;
        latencies.insert(latencies.end(), run.latencies.begin(), run.latencies.end());
    }
    if (failure.empty() && latencies.empty()) failure = "no samples";
    return failure.empty() ? latencies : std::vector<double>{};
}

std::string detailText(const std::vector<double>& latencies, const std::string& failure) {
    if (!failure.empty()) return failure;
    return "p99 " + figureText(percentile(latencies, 0.99) * kMillisecondsPerSecond) + " ms, " +
           std::to_string(latencies.size()) + " calls";
}

// The first subject's median is the reference of the others' ratios.
void printRows(const std::vector<Subject>& subjects) {
    double reference = kNoFigure;
    for (const Subject& subject : subjects) {
        std::string failure;
        const std::vector<double> latencies = pooledLatencies(subject, failure);
        Row row{"query " + std::string(kQuery), subject.name,
                median(latencies) * kMillisecondsPerSecond, "ms", detailText(latencies, failure)};
        if (&subject == &subjects.front())
            reference = row.value;
        else
            row.ratio = row.value / reference;
        row.target = subject.target;
        printRow(row);
    }
}

void measureInTurn(std::vector<Subject>& subjects) {
    for (int repetition = 0; repetition < kRepetitions; ++repetition) {
        for (Subject& subject : subjects)
            subject.runs.push_back(subject.measure());
    }
}

// znhost and, where Tango may run, a second znhost with the Tango server as its client.
struct Servers {
    ChildProcess queryHost, tangoHost, tangoServer;
    int queryPort = testsupport::freeLoopbackPort();
    int tangoHostPort = testsupport::freeLoopbackPort();
    int tangoPort = testsupport::freeLoopbackPort();
    std::string queryFailure, tangoFailure;

    explicit Servers(const TempDir& dir) {
        queryFailure = makeFolder(dir.file("query"));
        if (queryFailure.empty())
            queryFailure = startZnhost(dir.file("query"), queryPort, queryHost);
        tangoFailure = onlyLoopback() ? makeFolder(dir.file("tango"))
                                      : "needs a loopback-only namespace: tests/python/isolated";
        if (tangoFailure.empty())
            tangoFailure = startZnhost(dir.file("tango"), tangoHostPort, tangoHost);
        if (tangoFailure.empty())
            tangoFailure =
                startTangoServer(dir.file("tango"), tangoHostPort, tangoPort, tangoServer);
    }

    // The Tango server first: it is the second znhost's client.
    ~Servers() {
        for (ChildProcess* process : {&tangoServer, &tangoHost, &queryHost})
            stopServer(*process);
    }
};

std::function<Run()> unlessFailed(const std::string& failure, std::function<Run()> measure) {
    if (failure.empty()) return measure;
    return [failure] { return Run::failed(failure); };
}

// The first is the one-line round trip, which the others are divided by.
std::vector<Subject> querySubjects(const Servers& servers, Worker& worker,
                                   const std::string& workerFailure) {
    const int port = servers.queryPort;
    const std::string& hostFailure = servers.queryFailure;
    const std::string pythonFailure = hostFailure.empty() ? workerFailure : hostFailure;
    const std::string tangoFailure =
        servers.tangoFailure.empty() ? workerFailure : servers.tangoFailure;
    const std::string url = tangoUrl(servers.tangoPort);
    return {
        {"one line", Target{}, unlessFailed(hostFailure, [=] { return oneLine(port); })},
        {"command + sync", ratioAtMost(kSyncRatioBound),
         unlessFailed(hostFailure, [=] { return withSync(port); })},
        {"Python Client", valueBelow(kPythonMedianBoundMs),
         unlessFailed(
             pythonFailure,
             [&worker, port] { return workerBatch(worker, "python", std::to_string(port)); })},
        {"Tango DeviceProxy", Target{},
         unlessFailed(tangoFailure, [&worker, url] { return workerBatch(worker, "tango", url); })},
        {"rcclient process", Target{},
         unlessFailed(hostFailure, [=] { return rcclientProcesses(port); })}};
}

void run(bool header) {
    TempDir dir;
    Servers servers(dir);
    Worker worker;
    const std::string workerFailure = worker.start(
        {REMOTECTRL_PYTHON3, std::string(REMOTECTRL_SOURCE_DIR) + "/bench/query_worker.py"},
        dir.file("worker.log"), kWorkerTimeout);
    std::vector<Subject> subjects = querySubjects(servers, worker, workerFailure);
    measureInTurn(subjects);
    worker.stop();
    if (header) printHeader();
    printRows(subjects);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    // The worker and the Tango server run the package from this source tree, as its tests do,
    // and leave no byte code in it.
    setenv("PYTHONPATH", REMOTECTRL_SOURCE_DIR "/python", 1);
    setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
    bench::run(argc > 1 && std::strcmp(argv[1], "--header") == 0);
    return 0;
}
