#include "tests/apps/helpers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

extern char** environ;

namespace apps_test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr milliseconds kPollStep{10};

int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

sockaddr_in loopbackAddress(int port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

}  // namespace

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

bool waitForFileText(const std::string& path, const std::string& text, milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        if (readFile(path).find(text) != std::string::npos) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kPollStep);
    }
}

int freeLoopbackPort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = loopbackAddress(0);
    socklen_t length = sizeof addr;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
}

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

bool ChildProcess::exitedNormally() const {
    return mPid < 0 && WIFEXITED(mStatus);
}

int ChildProcess::exitCode() const {
    return exitedNormally() ? WEXITSTATUS(mStatus) : -1;
}

bool RawClient::connect(int port, milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        close();
        mFd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr = loopbackAddress(port);
        if (::connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return true;
        if (Clock::now() >= deadline) {
            close();
            return false;
        }
        std::this_thread::sleep_for(kPollStep);
    }
}

bool RawClient::sendText(const std::string& text) {
    size_t sent = 0;
    while (sent < text.size()) {
        ssize_t n = ::send(mFd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

namespace {

// Waits (until `deadline`) for data and receives one chunk into `into`. Returns recv's result
// (0: the peer closed; below 0: the connection failed), or nothing when the wait ran out.
std::optional<ssize_t> receiveChunk(int fd, Clock::time_point deadline, std::string& into) {
    for (;;) {
        pollfd ready = {fd, POLLIN, 0};
        int polled = poll(&ready, 1, remainingMs(deadline));
        if (polled < 0 && errno == EINTR) continue;
        if (polled <= 0) return std::nullopt;
        char chunk[512];
        ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n > 0) into.append(chunk, static_cast<size_t>(n));
        return n;
    }
}

}  // namespace

bool RawClient::readLine(std::string& line, milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    for (;;) {
        size_t end = mBuffer.find('\n');
        if (end != std::string::npos) {
            line = mBuffer.substr(0, end);
            mBuffer.erase(0, end + 1);
            return true;
        }
        std::optional<ssize_t> received = receiveChunk(mFd, deadline, mBuffer);
        if (!received || *received <= 0) return false;
    }
}

bool RawClient::waitForClose(milliseconds bound) {
    Clock::time_point deadline = Clock::now() + bound;
    std::string ignored;
    for (;;) {
        std::optional<ssize_t> received = receiveChunk(mFd, deadline, ignored);
        if (!received) return false;
        if (*received <= 0) return true;  // closed, or reset
        ignored.clear();
    }
}

bool RawClient::finishSending() {
    return mFd >= 0 && ::shutdown(mFd, SHUT_WR) == 0;
}

void RawClient::abort() {
    if (mFd < 0) return;
    linger reset = {1, 0};
    setsockopt(mFd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close();
}

void RawClient::close() {
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    mBuffer.clear();
}

}  // namespace apps_test
