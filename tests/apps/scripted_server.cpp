#include "tests/apps/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "tests/apps/helpers.h"

namespace apps_test {

namespace {

constexpr int kPollMillis = 50;

bool sendAll(int fd, const std::string& text) {
    size_t sent = 0;
    while (sent < text.size()) {
        ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

ScriptedServer::ScriptedServer(int port, Script script) : mScript(std::move(script)) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd, 1) != 0) {
        ::close(fd);
        return;
    }
    mListener = fd;
    mThread = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
    mStop = true;
    if (mThread.joinable()) mThread.join();
    if (mListener >= 0) ::close(mListener);
}

// Polls in short slices so that the destructor's stop request is seen; gives up after the
// reply bound, so a client that never comes cannot hold the test.
bool ScriptedServer::waitReadable(int fd) {
    auto deadline = std::chrono::steady_clock::now() + kReplyBound;
    while (!mStop && std::chrono::steady_clock::now() < deadline) {
        pollfd entry = {fd, POLLIN, 0};
        if (::poll(&entry, 1, kPollMillis) > 0) return true;
    }
    return false;
}

void ScriptedServer::serve() {
    if (!waitReadable(mListener)) return;
    int connection = ::accept(mListener, nullptr, nullptr);
    if (connection < 0) return;
    std::string buffer;
    char chunk[4096];
    while (waitReadable(connection)) {
        ssize_t n = ::recv(connection, chunk, sizeof chunk, 0);
        if (n <= 0) break;
        buffer.append(chunk, static_cast<size_t>(n));
        for (size_t end; (end = buffer.find('\n')) != std::string::npos;) {
            std::string line = buffer.substr(0, end);
            buffer.erase(0, end + 1);
            answer(connection, line);
        }
    }
    ::close(connection);
}

void ScriptedServer::answer(int connection, const std::string& line) {
    Answer reply = mScript(line);
    sendAll(connection, reply.now);
    if (reply.later.empty()) return;
    // In slices, so that the destructor need not wait out a long delay.
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(reply.delay);
    while (!mStop && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMillis));
    if (!mStop) sendAll(connection, reply.later);
}

}  // namespace apps_test
