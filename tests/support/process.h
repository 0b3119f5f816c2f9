// A child process that a test starts and always stops: the destructor kills and reaps it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/bounds.h"

namespace testsupport {

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess() { kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts argv[0] with default signal dispositions and an empty signal mask; standard input
    // comes from `stdinPath`, standard output and error go to the two files.
    bool start(const std::vector<std::string>& argv, const std::string& stdoutPath,
               const std::string& stderrPath, const std::string& stdinPath = "/dev/null");
    // Runs `body` in a forked child, which exits with its result; false when fork failed. The
    // child gets SIGKILL when the thread that forked it ends, so that none outlives its starter.
    bool fork(const std::function<int()>& body);
    // True when the process has ended within `bound` (it is then reaped).
    bool waitForExit(milliseconds bound);
    void sendSignal(int signal);
    // SIGKILL and reap, when still running.
    void kill();

    // The exit status of a child that ended normally, else -1.
    int exitCode() const;

private:
    pid_t mPid = -1;
    int mStatus = 0;
};

}  // namespace testsupport
