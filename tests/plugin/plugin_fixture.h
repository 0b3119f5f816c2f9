// The plug-in tests' fixture: a RemoteCtrl served by the fake host on a free loopback port, and a
// client, plain or TLS, that pairs replies exactly with the protocol's sync line.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "plugin/remotectrl.h"
#include "protocol/pairing.h"
#include "tests/plugin/fake_host.h"
#include "tests/support/files.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_client.h"

namespace testhost {

using namespace testsupport;

inline void writePortSetting(const std::string& dir, const std::string& port) {
    writeFile(dir + "/remotectrl.ini", "[Settings]\nPort=" + port + "\n");
}

template <typename Transport>
class PairedClient : public Transport {
public:
    using Transport::Transport;

    // Sends the command with the sync line; returns the command's own replies joined by "|"
    // ("" when it was silent), or "<no reply>" when the sync reply did not come.
    std::string exchange(const std::string& command) {
        const protocol::PairingKind kind = protocol::pairingKind(command);
        const unsigned long ticket = mPairing.sent(kind);
        if (!this->sendLine(protocol::withSyncLine(command, kind))) return "<not sent>";
        std::string replies;
        while (!mPairing.answered(ticket))
            if (!receiveLine(replies)) return "<no reply>";
        return replies;
    }
    // True while an acquisition this client started has not sent its final line.
    bool acquisitionPending() const { return mPairing.acquisitionPending(); }
    // True while nextFinal has a final line to give: one that came already, or one still to come.
    bool finalOwed() const { return acquisitionPending() || !mFinals.empty(); }
    // The oldest final line of this client's acquisitions, waiting for one when none has come.
    std::string nextFinal() {
        std::string replies;
        while (mFinals.empty())
            if (!receiveLine(replies)) return "<no final reply>";
        const std::string final = mFinals.front();
        mFinals.erase(mFinals.begin());
        return final;
    }

private:
    // Reads and routes one line: replies to `replies`, final lines (an earlier client's stray
    // ones too) to mFinals.
    bool receiveLine(std::string& replies) {
        std::string line;
        if (!this->readLine(line, kReplyBound)) return false;
        std::vector<protocol::Routed> routed;
        mPairing.take(line, routed);
        for (const protocol::Routed& entry : routed)
            if (entry.kind != protocol::Routed::Kind::Reply)
                mFinals.push_back(entry.line);
            else
                replies += (replies.empty() ? "" : "|") + entry.line;
        return true;
    }

    protocol::ReplyPairing mPairing;
    std::vector<std::string> mFinals;
};

using Client = PairedClient<RawClient>;
using TlsPairedClient = PairedClient<TlsClient>;

// A plug-in with two devices in both lists and devcontrol loaded, listening on a free port.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        host.settingsDir = settingsDir.path();
        host.devices = host.filtered = {&dev0, &dev1};
        port = freeLoopbackPort();
        ASSERT_GT(port, 0);
        writePortSetting(settingsDir.path(), std::to_string(port));
    }
    void TearDown() override {
        client.close();
        if (started) plugin.onClose();
    }
    void start() {
        ASSERT_EQ(plugin.initialize(&host), 0);
        started = true;
        ASSERT_TRUE(client.connect(port, kStartBound)) << "no server on port " << port;
    }
    void close() {
        plugin.onClose();
        started = false;
    }
    // Polls until `condition` holds; false when the bound passes first.
    template <typename Condition>
    static bool waitUntil(Condition condition) {
        for (int i = 0; i < 500; ++i) {
            if (condition()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    // Polls the host's log until a line holds `text`.
    bool waitForLog(const std::string& text) {
        return waitUntil([&] {
            for (const std::string& line : host.logged.lines())
                if (line.find(text) != std::string::npos) return true;
            return false;
        });
    }
    void writeSettings(const std::string& lines) {
        writeFile(settingsDir.path() + "/remotectrl.ini",
                  "[Settings]\nPort=" + std::to_string(port) + "\n" + lines);
    }

    TempDir settingsDir;
    FakeDevice dev0{"dev0"};
    FakeDevice dev1{"dev1"};
    FakeHost host;
    PluginRemoteCtrl::RemoteCtrl plugin;
    Client client;
    int port = -1;
    bool started = false;
};

}  // namespace testhost
