// Fuzzes the command server end to end: one input is the byte stream of one client, sent over a
// loopback connection to a real plug-in served by the hand-written fake host, through getLine's
// framing into processCommandString. Every reply must be one line of the protocol's vocabulary.
//
// One plug-in serves the whole process (started on first use on a free loopback port, stopped at
// exit). Per input: connect, send the bytes (a line feed added when they do not end in one), then
// a sync line whose reply marks the end of this input's replies, then QUIT(), after which the
// server must close the connection. The sync line is resent with a growing pause until it is
// answered, since a zero byte in the stream makes the server drop the rest of the chunk it arrived
// in, sync line included. A session the input ended (QUIT(), an empty line) closes the connection,
// which ends the input too. A server that neither answers nor closes within kAnswerBound seconds
// is a finding.
//
// Devices: dev0 acquires and succeeds, dev1 acquires and fails, dev2 refuses every threshold; all
// acquisitions return at once, so an accepted START answers without the input having to STOP it.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "fuzz/check.h"
#include "net/sockets.h"
#include "plugin/remotectrl.h"
#include "tests/plugin/plugin_fixture.h"

namespace {

constexpr size_t kMaxInput = 64 * 1024;  // keeps every reply inside the socket buffers
constexpr double kAnswerBound = 10.0;    // generous: a round trip normally takes milliseconds
constexpr double kFirstPause = 0.001;
constexpr double kLongestPause = 1.0;

// Every line the server may send. Adding a reply to the protocol means adding it here.
const std::set<std::string> kReplies = {
    "OK",
    "YES",
    "NO",
    "ERROR: UNKNOWN COMMAND",
    "ERROR: ACQ ALREADY RUNNING",
    "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)",
    "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)",
    "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)",
    "ERROR: INVALID DEVICE INDEX",
    "ERROR: INVALID ACQ COUNT",
    "ERROR: INVALID ACQ TIME",
    "ERROR: INVALID THL",
    "ERROR: FAILED SETTING THL",
    "ERROR: ACQUISITION FAILED",
    "ERROR: UNEXPECTED ERROR",
    "ERROR: INVALID COMMAND SYNTAX",
};

class Server {
public:
    Server() {
        dev1.acqResult = -1;
        dev2.setThresholdResult = 1;
        host.settingsDir = settingsDir.path();
        host.devices = {&dev0, &dev1, &dev2};
        host.filtered = {&dev0, &dev1, &dev2};
        host.devControl.names = {{&dev0, "dev0"}, {&dev1, "dev1"}, {&dev2, "dev2"}};
        port = testhost::freeLoopbackPort();
        FUZZ_CHECK(port > 0, "a free loopback port");
        testhost::writeFile(settingsDir.path() + "/remotectrl.ini",
                            "[Settings]\nPort=" + std::to_string(port) + "\n");
        FUZZ_CHECK(plugin.initialize(&host) == 0, "the plug-in initializes");
    }
    ~Server() { plugin.onClose(); }

    int port = -1;

private:
    testhost::TempDir settingsDir;
    testhost::FakeDevice dev0;
    testhost::FakeDevice dev1;
    testhost::FakeDevice dev2;
    testhost::FakeHost host;
    PluginRemoteCtrl::RemoteCtrl plugin;
};

bool isEnd(const std::string& reply) {
    return reply == "<closed>" || reply == "<error>";
}

void checkReply(const std::string& reply) {
    FUZZ_CHECK(kReplies.count(reply) == 1, ("a protocol reply, not '" + reply + "'").c_str());
}

// Sends the sync line until its reply comes back, checking every line before it. Returns false
// when the server closed the session instead.
bool awaitSync(testhost::Client& client) {
    const std::string syncLine = "GUI_SETFILE()";
    const double start = getPrecTime();
    double pause = kFirstPause;
    while (getPrecTime() - start < kAnswerBound) {
        client.send(syncLine);
        for (;;) {
            std::string reply = client.reply(pause);
            if (reply == "<timeout>") break;
            if (isEnd(reply)) return false;
            if (reply == testhost::Client::kSyncReply) return true;
            checkReply(reply);
        }
        pause = pause * 2 < kLongestPause ? pause * 2 : kLongestPause;
    }
    FUZZ_CHECK(false, "the server answers or closes within the bound");
    return false;
}

// Ends the session and waits for the server to close the connection, so that the server side
// holds the closed connection's TIME_WAIT and the client's port is free at once. The leading line
// feed completes a partial line a zero byte may have left in the server's buffer; with none
// pending it is an empty line, which ends the session by itself.
void quitSession(testhost::Client& client) {
    client.sendRaw("\nQUIT()\n");
    const double start = getPrecTime();
    while (getPrecTime() - start < kAnswerBound) {
        std::string reply = client.reply(kAnswerBound);
        if (isEnd(reply)) return;
        if (reply == "<timeout>") break;
        checkReply(reply);  // answers to resent sync lines and late acquisition replies
    }
    FUZZ_CHECK(false, "the server closes the session after QUIT()");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Server server;
    if (size > kMaxInput) return 0;

    std::string stream(reinterpret_cast<const char*>(data), size);
    if (!stream.empty() && stream.back() != '\n') stream += '\n';

    testhost::Client client;
    FUZZ_CHECK(client.connect(server.port), "the server accepts a connection");
    // A session the input ends early may close before everything is sent; that is fine.
    if (!stream.empty()) client.sendRaw(stream);
    if (awaitSync(client)) quitSession(client);
    client.close();
    return 0;
}
