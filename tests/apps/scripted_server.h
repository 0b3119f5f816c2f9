// A loopback server for rcclient tests that answers each received line from a script: for the
// orders and timings of replies that a real server produces only by chance. It serves one
// connection; every wait is bounded, and the destructor stops and joins its thread.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace apps_test {

struct Answer {
    Answer() = default;
    Answer(std::string nowText, double delaySeconds = 0, std::string laterText = "")
        : now(std::move(nowText)), delay(delaySeconds), later(std::move(laterText)) {}

    std::string now;    // sent at once (may be part of a line)
    double delay = 0;   // seconds before `later` is sent
    std::string later;  // sent after the delay
};

class ScriptedServer {
public:
    using Script = std::function<Answer(const std::string& line)>;

    // Listens on 127.0.0.1:port; listening() tells whether that worked.
    ScriptedServer(int port, Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    bool listening() const { return mListener >= 0; }

private:
    void serve();
    bool waitReadable(int fd);
    void answer(int connection, const std::string& line);

    Script mScript;
    int mListener = -1;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

}  // namespace apps_test
