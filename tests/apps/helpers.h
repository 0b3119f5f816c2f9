// Helpers for the apps tests: temporary folders, files, child processes and a plain loopback
// client. Every wait here is bounded by the caller's limit; a child process is always killed and
// reaped by its owner's destructor.
#pragma once

#include "tests/support/temp_dir.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace apps_test {

using std::chrono::milliseconds;

// Generous bounds: sanitizer builds on a shared two-core machine are slow.
constexpr milliseconds kStartBound{20000};
constexpr milliseconds kReplyBound{10000};
constexpr milliseconds kExitBound{15000};

using testsupport::TempDir;

void writeFile(const std::string& path, const std::string& text);
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
std::vector<std::string> splitLines(const std::string& text);

// Polls `path` until it contains `text`; false when `bound` passes first.
bool waitForFileText(const std::string& path, const std::string& text, milliseconds bound);

// A loopback port that was free a moment ago.
int freeLoopbackPort();

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
    // True when the process has ended within `bound` (it is then reaped).
    bool waitForExit(milliseconds bound);
    void sendSignal(int signal);
    // SIGKILL and reap, when still running.
    void kill();

    bool running() const { return mPid > 0; }
    // The running child's process id; -1 once it has been reaped.
    pid_t pid() const { return mPid; }
    bool exitedNormally() const;
    int exitCode() const;

private:
    pid_t mPid = -1;
    int mStatus = 0;
};

// A plain blocking loopback client on POSIX sockets, independent of the code under test.
class RawClient {
public:
    RawClient() = default;
    ~RawClient() { close(); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // Connects to 127.0.0.1:port, retrying refused attempts until `bound` passes.
    bool connect(int port, milliseconds bound);
    bool sendText(const std::string& text);
    bool sendLine(const std::string& line) { return sendText(line + "\n"); }
    // The next line without its line feed; false on time-out or closed connection.
    bool readLine(std::string& line, milliseconds bound);
    // Sends one line and returns the reply line, or "<no reply>" when none came within `bound`.
    std::string request(const std::string& line, milliseconds bound) {
        std::string reply;
        return sendLine(line) && readLine(reply, bound) ? reply : "<no reply>";
    }
    // True when the peer closed the connection within `bound` (pending lines are skipped).
    bool waitForClose(milliseconds bound);
    // Ends the sending direction only (the peer reads end of stream); replies can still be read.
    bool finishSending();
    // Closes at once with a reset instead of an orderly shutdown.
    void abort();
    void close();

private:
    int mFd = -1;
    std::string mBuffer;
};

}  // namespace apps_test
