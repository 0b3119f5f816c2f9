// The plug-in on a TLS port: which clients it refuses and how it says so, that an accepted client
// is served exactly as a plain one is (every line of tests/protocol/cases/lines.cases), and that
// no command travels readable.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/plugin/plugin_fixture.h"
#include "tests/protocol/case_files.h"
#include "tests/support/row_name.h"

namespace testhost {
namespace {

using std::chrono::milliseconds;

// A plug-in whose port speaks TLS with the test PKI's server certificate.
class TlsPluginTest : public PluginTest {
protected:
    void startTls(const std::string& lines = "") {
        writeSettings("TlsCertificate=" + pkiFile("server.pem") + "\nTlsKey=" +
                      pkiFile("server.key") + "\nTlsClientCA=" + pkiFile("ca.pem") + "\n" + lines);
        ASSERT_EQ(plugin.initialize(&host), 0);
        started = true;
        ASSERT_TRUE(host.logged.lines().empty()) << host.logged.lines().front();
    }
};

const char* const kPlainText = "<plain text>";
const char* const kSilent = "<silent>";

struct RefusalRow {
    const char* name;
    const char* identity;  // the TLS client's certificate, or kPlainText, or kSilent
    const char* lines;     // settings beside the TLS ones
    const char* logged;    // the host log's line
    const char* from = "127.0.0.1";
};

const RefusalRow kRefusals[] = {
    {"plain_text", kPlainText, "", "TLS handshake with 127.0.0.1 failed: wrong version number"},
    {"no_certificate", "", "",
     "TLS handshake with 127.0.0.1 failed: peer did not return a certificate"},
    {"other_authority", "other-client", "",
     "TLS handshake with 127.0.0.1 failed: certificate verify failed: unable to get local issuer "
     "certificate"},
    {"expired", "expired-client", "",
     "TLS handshake with 127.0.0.1 failed: certificate verify failed: certificate has expired"},
    {"not_allowed", "stranger", "TlsAllowedClients=client.localhost, 127.0.0.2\n",
     "TLS handshake with 127.0.0.1 failed: client certificate (stranger, stranger.localhost) not "
     "allowed"},
    {"outside_allow_from", "client", "AllowFrom=127.0.0.1\n", "Refused connection from 127.0.0.2",
     "127.0.0.2"},
    {"stalls", kSilent, "", "TLS handshake with 127.0.0.1 failed: no handshake within 5 s"},
};

class TlsRefusalTest : public TlsPluginTest, public ::testing::WithParamInterface<RefusalRow> {};

// The refused client is not served; the next good one is, within 6 s even after one that stalls.
TEST_P(TlsRefusalTest, RefusesLogsAndServesTheNextClient) {
    const RefusalRow& row = GetParam();
    startTls(row.lines);
    std::unique_ptr<RawClient> refused;
    if (row.identity == kPlainText || row.identity == kSilent)
        refused = std::make_unique<RawClient>();
    else
        refused = std::make_unique<TlsClient>(row.identity);
    Endpoint from;
    from.localAddress = row.from;
    // A TLS 1.3 client has finished its handshake before the server checks its certificate.
    refused->connect(port, kStartBound, from);
    if (row.identity != kSilent) {
        EXPECT_EQ(refused->request("GUI_START(0)"), "<no reply>");
    }
    TlsPairedClient next;
    ASSERT_TRUE(next.connect(port, milliseconds(6000)));
    EXPECT_EQ(next.request("GUI_ISRUNNING(0)"), "NO");
    EXPECT_TRUE(waitForLog(row.logged)) << row.logged;
    EXPECT_TRUE(host.devControl.calls.lines().empty()) << "a refused client was served";
}

INSTANTIATE_TEST_SUITE_P(Rows, TlsRefusalTest, ::testing::ValuesIn(kRefusals), RowName());

// Every received line of lines.cases: its replies, or whether it ended the session.
template <typename Connection>
std::vector<std::string> serveEveryCaseLine(int port) {
    std::vector<std::string> outcomes;
    Connection client;
    if (!client.connect(port, kStartBound)) return {"<cannot connect>"};
    for (const protocol_test::Row& row : protocol_test::readRows("lines.cases")) {
        std::string line = row.items.at(0).texts.at(0);
        while (!line.empty() && line.back() == '\n')
            line.pop_back();
        const std::string where = "lines.cases:" + std::to_string(row.lineNumber) + " ";
        if (row.items.at(1).word != "session-end") {
            outcomes.push_back(where + client.exchange(line));
            // The next line meets an idle plug-in, whatever the timing: the final line may come
            // before the command's own replies are complete, or after.
            if (client.finalOwed()) outcomes.back() += " then " + client.nextFinal();
            continue;
        }
        const bool closed = client.sendLine(line) && client.waitForClose(kReplyBound);
        outcomes.push_back(where + (closed ? "<closed>" : "<still open>"));
        if (!client.connect(port, kStartBound)) return outcomes;
    }
    return outcomes;
}

TEST_F(TlsPluginTest, ServesEveryCaseLineAsAPlainPortDoes) {
    FakeHost plainHost;  // a second plug-in on a plain port, in the same state
    TempDir plainSettings;
    plainHost.settingsDir = plainSettings.path();
    plainHost.devices = plainHost.filtered = host.devices;
    const int plainPort = freeLoopbackPort();
    writePortSetting(plainSettings.path(), std::to_string(plainPort));
    PluginRemoteCtrl::RemoteCtrl plainPlugin;
    ASSERT_EQ(plainPlugin.initialize(&plainHost), 0);
    const std::vector<std::string> plain = serveEveryCaseLine<Client>(plainPort);
    plainPlugin.onClose();

    startTls();
    const std::vector<std::string> tls = serveEveryCaseLine<TlsPairedClient>(port);
    EXPECT_EQ(tls, plain);
    for (const std::string& outcome : plain)
        EXPECT_EQ(outcome.find("<"), outcome.find("<closed>")) << outcome;
}

// Copies one connection between a client and the server, keeping every byte that passes.
class Relay {
public:
    explicit Relay(int serverPort) {
        mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(mListener, reinterpret_cast<sockaddr*>(&address), length);
        listen(mListener, 1);
        getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &length);
        mPort = ntohs(address.sin_port);
        mThread = std::thread([this, serverPort] { relay(serverPort); });
    }
    ~Relay() {
        if (mThread.joinable()) mThread.join();
        close(mListener);
    }
    int port() const { return mPort; }
    // What passed, once the client has closed.
    std::string wire() {
        if (mThread.joinable()) mThread.join();
        return mWire;
    }

private:
    void relay(int serverPort) {
        pollfd listening{mListener, POLLIN, 0};
        if (poll(&listening, 1, int(kStartBound.count())) <= 0) return;
        pollfd ends[2] = {{accept(mListener, nullptr, nullptr), POLLIN, 0}, {-1, POLLIN, 0}};
        RawClient server;
        if (ends[0].fd >= 0 && server.connect(serverPort, kStartBound)) {
            ends[1].fd = server.descriptor();
            while (poll(ends, 2, int(kReplyBound.count())) > 0 && forward(ends[0], ends[1].fd) &&
                   forward(ends[1], ends[0].fd)) {
            }
        }
        close(ends[0].fd);
    }
    // False when the connection has ended.
    bool forward(const pollfd& from, int to) {
        if (from.revents == 0) return true;
        char bytes[4096];
        const ssize_t got = recv(from.fd, bytes, sizeof bytes, 0);
        if (got <= 0) return false;
        mWire.append(bytes, size_t(got));
        return send(to, bytes, size_t(got), MSG_NOSIGNAL) == got;
    }

    int mListener;
    int mPort = 0;
    std::string mWire;
    std::thread mThread;
};

TEST_F(TlsPluginTest, NoCommandOrReplyTextTravelsReadable) {
    startTls();
    Relay relay(port);
    TlsPairedClient overRelay;
    ASSERT_TRUE(overRelay.connect(relay.port(), kStartBound));
    const std::string command = "GUI_SETFILE(0,\"secret-run-name.txt\")";
    EXPECT_EQ(overRelay.exchange(command), "");
    EXPECT_EQ(overRelay.exchange("START(0,1,0,f,1000)"), "ERROR: INVALID THL");
    overRelay.close();
    const std::string wire = relay.wire();
    EXPECT_GT(wire.size(), command.size()) << "the relay saw nothing";
    for (const char* text : {"secret-run-name", "GUI_", "START", "INVALID THL"})
        EXPECT_EQ(wire.find(text), std::string::npos) << text;
    EXPECT_EQ(host.devControl.calls.lines(),
              std::vector<std::string>{"setFile dev0 secret-run-name.txt 1"});
}

}  // namespace
}  // namespace testhost
