// A process the benchmark starts and always stops again: a reference server forked from the
// benchmark, or znhost run from its binary. The child dies with the benchmark (PR_SET_PDEATHSIG)
// and stop() ends it with SIGTERM, then SIGKILL when it has not exited within the time given.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess() { stop(2.0); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs `body` in a forked child, which exits with its result. False when fork failed.
    bool fork(const std::function<int()>& body);

    // Runs the program with its standard output on a pipe that waitForLine reads and its
    // standard error appended to `errorLog`. False when the pipe or fork failed; a program
    // that cannot be run exits at once with status 127.
    bool exec(const std::vector<std::string>& argv, const std::string& errorLog);

    // Reads the child's output until a line equal to `wanted`; false at end of output or after
    // `timeout` seconds.
    bool waitForLine(const std::string& wanted, double timeout);

    // SIGTERM, then SIGKILL after `timeout` seconds; returns the wait status, or -1 when no
    // child runs. Safe to call more than once.
    int stop(double timeout);

private:
    pid_t mPid = -1;
    int mOutput = -1;
    std::string mPendingOutput;
};

}  // namespace bench
