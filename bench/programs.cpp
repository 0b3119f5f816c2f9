#include "bench/programs.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "bench/stats.h"

extern char** environ;

namespace bench {

namespace {

constexpr std::chrono::milliseconds kWorkerExitTimeout{10000};
constexpr int kMillisecondsPerSecond = 1000;
constexpr int kExecFailed = 127;

std::string failedCall(const std::string& call) {
    return call + ": " + std::strerror(errno);
}

bool setReceiveTimeout(int fd, double seconds) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(seconds);
    limit.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(limit.tv_sec)) * 1e6);
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

std::vector<char*> argumentPointers(const std::vector<std::string>& argv) {
    std::vector<char*> pointers;
    for (const std::string& argument : argv)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// In the forked child: the channel becomes standard input and output. Both ends of the pair
// are close-on-exec, so the program's input ends when this process closes its own end.
int execWorker(int channel, int errors, const std::vector<char*>& argv) {
    if (dup2(channel, STDIN_FILENO) < 0 || dup2(channel, STDOUT_FILENO) < 0 ||
        dup2(errors, STDERR_FILENO) < 0)
        return kExecFailed;
    execv(argv[0], argv.data());
    return kExecFailed;
}

pid_t spawnQuiet(const std::vector<char*>& argv) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&files);
    return pid;
}

// Waits for `pid` to exit within `timeoutSeconds` (a process descriptor makes the wait both
// bounded and exact, where polling waitpid would round every figure up to the poll interval);
// kills it when it does not. "" when it exited with 0, else why not.
std::string reap(pid_t pid, double timeoutSeconds) {
    const int pidFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    std::string failure = pidFd < 0 ? failedCall("pidfd_open") : "";
    pollfd exited{pidFd, POLLIN, 0};
    if (failure.empty() &&
        poll(&exited, 1, static_cast<int>(timeoutSeconds * kMillisecondsPerSecond)) != 1)
        failure = "still running after the time-out";
    if (pidFd >= 0) close(pidFd);
    if (!failure.empty()) kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (failure.empty() && (!WIFEXITED(status) || WEXITSTATUS(status) != 0))
        failure = "exit status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    return failure;
}

}  // namespace

std::string Worker::start(const std::vector<std::string>& argv, const std::string& stderrPath,
                          double replyTimeout) {
    mStderrPath = stderrPath;
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return failedCall("socketpair");
    const int errors = open(stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const std::vector<char*> pointers = argumentPointers(argv);
    const bool started =
        errors >= 0 && mProcess.fork([&] { return execWorker(pair[1], errors, pointers); });
    const std::string failure = errors < 0 ? failedCall("open " + stderrPath)
                                : started  ? ""
                                           : failedCall("fork");
    if (errors >= 0) close(errors);
    close(pair[1]);
    if (!failure.empty() || !setReceiveTimeout(pair[0], replyTimeout)) {
        close(pair[0]);
        mProcess.kill();
        return failure.empty() ? failedCall("setsockopt SO_RCVTIMEO") : failure;
    }
    mChannel = pair[0];
    mReader = std::make_unique<LineReader>(mChannel);
    return "";
}

bool Worker::request(const std::string& line, std::string& answer) {
    const std::string text = line + "\n";
    if (mChannel >= 0 && sendAll(mChannel, text.data(), text.size()) && mReader->readLine(answer))
        return true;
    stop();
    return false;
}

void Worker::stop() {
    if (mChannel >= 0) close(mChannel);
    mChannel = -1;
    mReader.reset();
    if (!mProcess.waitForExit(kWorkerExitTimeout)) mProcess.kill();
}

Run runOneShots(const OneShots& plan) {
    const std::vector<char*> argv = argumentPointers(plan.argv);
    Run run;
    double measuredStart = monotonicSeconds();
    for (int i = 0; i < plan.warmUp + plan.measured; ++i) {
        if (i == plan.warmUp) measuredStart = monotonicSeconds();
        const double started = monotonicSeconds();
        const pid_t pid = spawnQuiet(argv);
        const std::string failure =
            pid < 0 ? "cannot start " + plan.argv[0] : reap(pid, plan.timeoutSeconds);
        if (!failure.empty()) return Run::failed(plan.argv[0] + ": " + failure);
        if (i < plan.warmUp) continue;
        const double ended = monotonicSeconds();
        run.latencies.push_back(ended - started);
        if (ended - measuredStart > plan.budgetSeconds) break;
    }
    run.perSecond =
        static_cast<double>(run.latencies.size()) / (monotonicSeconds() - measuredStart);
    return run;
}

}  // namespace bench
