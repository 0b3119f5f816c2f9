// Other programs as benchmark subjects: a long-running worker that takes one request line and
// answers one line, and one-shot processes timed from spawn to exit. Every process started here
// is stopped here; every wait is bounded.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/loopback.h"
#include "bench/round_trip.h"
#include "tests/support/process.h"

namespace bench {

// A program whose standard input and output are this process's end of a socket pair. It must
// answer every request line with one line, and end at the end of its input.
class Worker {
public:
    Worker() = default;
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Starts argv[0] (a path) with its standard error going to `stderrPath`; "" on success,
    // else why it could not start.
    std::string start(const std::vector<std::string>& argv, const std::string& stderrPath,
                      double replyTimeout);
    // The answer to `line` (a request without its "\n"); false when none came in time, which
    // stops the worker.
    bool request(const std::string& line, std::string& answer);
    // Ends its input, gives it a few seconds to end, then kills it.
    void stop();

    const std::string& stderrPath() const { return mStderrPath; }

private:
    testsupport::ChildProcess mProcess;
    std::string mStderrPath;
    int mChannel = -1;
    std::unique_ptr<LineReader> mReader;
};

struct OneShots {
    std::vector<std::string> argv;  // argv[0] a path; standard input and output are /dev/null
    int warmUp;
    int measured;
    double budgetSeconds;   // stops early, with what it has, once the measured part took this long
    double timeoutSeconds;  // a process still running after this long is killed: a failed run
};

// Runs the program warmUp + measured times, one after another; every run must exit with 0.
Run runOneShots(const OneShots& plan);

}  // namespace bench
