#include "tests/support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

extern char** environ;

namespace testsupport {

namespace {

using Clock = std::chrono::steady_clock;
constexpr milliseconds kPollStep{10};

}  // namespace

bool ChildProcess::start(const std::vector<std::string>& argv, const std::string& stdoutPath,
                         const std::string& stderrPath, const std::string& stdinPath) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, stdinPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&files, 2, stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    // The test runner may ignore or block signals; the child must see them as a shell gives them.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults, empty;
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGINT, SIGTERM})
        sigaddset(&defaults, signal);
    sigemptyset(&empty);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &empty);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    int result = posix_spawn(&mPid, args[0], &files, &attributes, args.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (result != 0) mPid = -1;
    return result == 0;
}

bool ChildProcess::fork(const std::function<int()>& body) {
    pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    mPid = pid;
    return true;
}

bool ChildProcess::waitForExit(milliseconds bound) {
    if (mPid <= 0) return true;
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        pid_t done = waitpid(mPid, &mStatus, WNOHANG);
        if (done == mPid || (done < 0 && errno != EINTR)) {
            mPid = -1;
            return true;
        }
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kPollStep);
    }
}

void ChildProcess::sendSignal(int signal) {
    if (mPid > 0) ::kill(mPid, signal);
}

void ChildProcess::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    while (waitpid(mPid, &mStatus, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
}

int ChildProcess::exitCode() const {
    return mPid < 0 && WIFEXITED(mStatus) ? WEXITSTATUS(mStatus) : -1;
}

}  // namespace testsupport
