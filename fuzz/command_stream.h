// The command server fuzzed end to end: one input is the byte stream of one client, sent over a
// loopback connection to a real plug-in served by the tests' fake host. Every reply must be one
// line of the protocol's vocabulary, and the server must answer or close within a bound. The
// targets differ in the connection: plain (fuzz_command_stream) or TLS (fuzz_tls_session).
//
// Per input: connect, send the bytes, then the sync line until it is answered (a zero byte makes
// the server drop the rest of its chunk, sync line included), then QUIT(), which must close the
// session. dev0's acquisitions succeed, dev1's fail, dev2 refuses every threshold.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "protocol/replies.h"
#include "tests/plugin/plugin_fixture.h"

namespace fuzzstream {

using std::chrono::milliseconds;

constexpr size_t kMaxInput = 64 * 1024;  // keeps every reply inside the socket buffers
constexpr milliseconds kAnswerBound{10000};
constexpr milliseconds kLongestPause{1000};

class Server {
public:
    // `settings`: lines for remotectrl.ini beside the port.
    explicit Server(const std::string& settings) {
        dev1.acqResult = -1;
        dev2.setThresholdResult = 1;
        host.settingsDir = settingsDir.path();
        host.devices = host.filtered = {&dev0, &dev1, &dev2};
        port = testsupport::freeLoopbackPort();
        FUZZ_CHECK(port > 0, "a free loopback port");
        testsupport::writeFile(settingsDir.file("remotectrl.ini"),
                               "[Settings]\nPort=" + std::to_string(port) + "\n" + settings);
        FUZZ_CHECK(plugin.initialize(&host) == 0 && host.logged.lines().empty(),
                   "the plug-in initializes");
    }
    ~Server() { plugin.onClose(); }

    int port = -1;

private:
    testsupport::TempDir settingsDir;
    testhost::FakeDevice dev0, dev1, dev2;
    testhost::FakeHost host;
    PluginRemoteCtrl::RemoteCtrl plugin;
};

inline void checkReply(const std::string& reply) {
    const bool known =
        std::any_of(std::begin(protocol::kAllReplies), std::end(protocol::kAllReplies),
                    [&](const char* each) { return reply == each; });
    FUZZ_CHECK(known, ("a protocol reply, not '" + reply + "'").c_str());
}

// Sends the sync line until its reply comes back, checking every line before it. False when the
// server ended the session instead.
inline bool awaitSync(testsupport::RawClient& client) {
    const auto deadline = std::chrono::steady_clock::now() + kAnswerBound;
    for (milliseconds pause{1}; std::chrono::steady_clock::now() < deadline;
         pause = std::min(pause * 2, kLongestPause)) {
        if (!client.sendLine(protocol::kSyncCommand)) return false;
        for (std::string reply; client.readLine(reply, pause);) {
            if (reply == protocol::kSyncReply) return true;
            checkReply(reply);
        }
    }
    FUZZ_CHECK(false, "the server answers or closes within the bound");
    return false;
}

// One input as one session on a `Client` connection.
template <typename Client>
int serve(const Server& server, const uint8_t* data, size_t size) {
    if (size > kMaxInput) return 0;
    std::string stream(reinterpret_cast<const char*>(data), size);
    if (!stream.empty() && stream.back() != '\n') stream += '\n';

    Client client;
    FUZZ_CHECK(client.connect(server.port, kAnswerBound), "the server accepts a connection");
    // A session the input ends early may close before everything is sent; that is fine.
    if (!stream.empty()) client.sendText(stream);
    // The leading line feed completes a partial line a zero byte may have left behind.
    if (awaitSync(client) && client.sendText("\nQUIT()\n"))
        FUZZ_CHECK(client.waitForClose(kAnswerBound), "the server closes the session after QUIT()");
    return 0;
}

}  // namespace fuzzstream
