#include "bench/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "bench/stats.h"

namespace bench {

namespace {

constexpr useconds_t kReapPollMicros = 2000;

// In the child, before anything else: a benchmark that dies must not leave servers behind.
void dieWithParent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// Waits for the child without blocking past `deadline`; true once it was reaped.
bool reapBefore(pid_t pid, double deadline, int& status) {
    for (;;) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR)) return true;
        if (monotonicSeconds() >= deadline) return false;
        usleep(kReapPollMicros);
    }
}

[[noreturn]] void execOrExit(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

}  // namespace

bool ChildProcess::fork(const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        dieWithParent();
        _exit(body());
    }
    mPid = pid;
    return true;
}

bool ChildProcess::exec(const std::vector<std::string>& argv, const std::string& errorLog) {
    int output[2];
    if (argv.empty() || pipe2(output, O_CLOEXEC) != 0) return false;
    const pid_t pid = ::fork();
    if (pid < 0) {
        close(output[0]);
        close(output[1]);
        return false;
    }
    if (pid == 0) {
        dieWithParent();
        dup2(output[1], STDOUT_FILENO);
        const int log = open(errorLog.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (log >= 0) dup2(log, STDERR_FILENO);
        execOrExit(argv);
    }
    close(output[1]);
    mPid = pid;
    mOutput = output[0];
    return true;
}

bool ChildProcess::waitForLine(const std::string& wanted, double timeout) {
    const double deadline = monotonicSeconds() + timeout;
    for (;;) {
        std::string::size_type end;
        while ((end = mPendingOutput.find('\n')) != std::string::npos) {
            const bool found = mPendingOutput.compare(0, end, wanted) == 0 && end == wanted.size();
            mPendingOutput.erase(0, end + 1);
            if (found) return true;
        }
        const double left = deadline - monotonicSeconds();
        if (mOutput < 0 || left <= 0) return false;
        pollfd ready{mOutput, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left * 1000) + 1) <= 0) continue;
        char chunk[512];
        const ssize_t got = read(mOutput, chunk, sizeof chunk);
        if (got <= 0) return false;
        mPendingOutput.append(chunk, static_cast<size_t>(got));
    }
}

int ChildProcess::stop(double timeout) {
    int status = -1;
    if (mPid >= 0) {
        kill(mPid, SIGTERM);
        if (!reapBefore(mPid, monotonicSeconds() + timeout, status)) {
            kill(mPid, SIGKILL);
            reapBefore(mPid, monotonicSeconds() + timeout, status);
        }
        mPid = -1;
    }
    // Closed only now: a child still writing its last words to a closed pipe would die of
    // SIGPIPE instead of exiting on its own.
    if (mOutput >= 0) close(mOutput);
    mOutput = -1;
    return status;
}

}  // namespace bench
