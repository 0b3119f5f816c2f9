// Shared fixture of the plug-in tests: a RemoteCtrl on a free loopback port, served by a fake host,
// and a client connection that reads reply lines with bounded waits.
#pragma once

#include "tests/support/temp_dir.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "plugin/remotectrl.h"
#include "tests/plugin/fake_host.h"

namespace testhost {

using testsupport::TempDir;

// Threads of this process, from the kernel's view.
inline int threadCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.') ++count;
        closedir(dir);
    }
    return count;
}

// A port that was free a moment ago: bound on loopback with port 0, then released.
inline int freeLoopbackPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = -1;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

constexpr double kReplyWait = 3.0;  // generous: replies normally take microseconds

// A connected test client.
class Client {
public:
    // Connects, retrying for a while since the server thread may still be starting.
    bool connect(int port, int attempts = 100) {
        for (int attempt = 0; attempt < attempts; ++attempt) {
            mSocket = std::make_unique<TCPSocket>();
            if (mSocket->connect("127.0.0.1", static_cast<unsigned short>(port), 1.0) == 0)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
        return false;
    }
    void send(const std::string& line) { mSocket->sendLine(line, kReplyWait); }
    void sendRaw(const std::string& bytes) {
        mSocket->send(bytes.data(), static_cast<int>(bytes.size()), kReplyWait);
    }
    // The next reply line, or "<timeout>" / "<closed>".
    std::string reply(double timeout = kReplyWait) {
        std::string line;
        int rc = mSocket->getLine(line, timeout);
        if (rc == -10) return "<timeout>";
        if (rc != 0) return "<error>";
        // The server never sends an empty line: an empty result means the peer closed.
        return line.empty() ? "<closed>" : line;
    }
    // Sends a command and a sync line that is always answered with an argument-count error; returns
    // the lines that arrived before that answer, joined by "|" ("" when the command was silent).
    // GUI_SETFILE's own count error would look like the usual sync answer, so it gets another one.
    std::string exchange(const std::string& command) {
        bool setFile = command.rfind("GUI_SETFILE", 0) == 0;
        send(command);
        send(setFile ? "GUI_STOP(,)" : "GUI_SETFILE()");
        const std::string syncReply = setFile ? kSyncReplyOne : kSyncReply;
        std::string replies;
        for (int i = 0; i < 10; ++i) {
            std::string line = reply();
            if (line == syncReply) return replies;
            if (line == "<timeout>" || line == "<closed>" || line == "<error>") return line;
            replies += (replies.empty() ? "" : "|") + line;
        }
        return replies;
    }
    // Sends a START and the sync line. The acquisition's final line may come before or after the
    // sync reply; returns the final line, or the refusal that came instead of it.
    std::string acquire(const std::string& command) {
        send(command);
        send("GUI_SETFILE()");
        bool synced = false;
        std::string answer;
        for (int i = 0; i < 10 && !(synced && !answer.empty()); ++i) {
            std::string line = reply();
            if (line == kSyncReply)
                synced = true;
            else if (line.rfind("<", 0) == 0)
                return line;
            else
                answer = line;
        }
        return answer;
    }
    void close() { mSocket.reset(); }
    TCPSocket& socket() { return *mSocket; }

    static constexpr const char* kSyncReply = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)";
    static constexpr const char* kSyncReplyOne = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)";

private:
    std::unique_ptr<TCPSocket> mSocket;
};

// A plug-in with two devices in both lists and devcontrol loaded, listening on a free port.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        host.settingsDir = settingsDir.path();
        host.devices = {&dev0, &dev1};
        host.filtered = {&dev0, &dev1};
        host.devControl.names = {{&dev0, "dev0"}, {&dev1, "dev1"}};
        port = freeLoopbackPort();
        ASSERT_GT(port, 0);
        writeFile(settingsDir.path() + "/remotectrl.ini",
                  "[Settings]\nPort=" + std::to_string(port) + "\n");
    }

    void TearDown() override {
        client.close();
        if (started) plugin.onClose();
    }

    // Starts the server and connects the client.
    void start() {
        ASSERT_EQ(plugin.initialize(&host), 0);
        started = true;
        ASSERT_TRUE(client.connect(port)) << "no server on port " << port;
    }

    TempDir settingsDir;
    FakeDevice dev0;
    FakeDevice dev1;
    FakeHost host;
    PluginRemoteCtrl::RemoteCtrl plugin;
    Client client;
    int port = -1;
    bool started = false;
};

}  // namespace testhost
