// A connected TCP pair on 127.0.0.1 for the socket tests: `client` connected through `server`,
// `peer` the accepted far end. Tests talk to the loopback address only.
#ifndef REMOTECTRL_TESTS_NET_LOOPBACK_H
#define REMOTECTRL_TESTS_NET_LOOPBACK_H

#include <gtest/gtest.h>

#include <memory>

#include "net/sockets.h"

namespace nettest {

constexpr const char* kLoopback = "127.0.0.1";
// Generous bound for waits that should end almost at once.
constexpr double kWait = 3.0;
// Time-out for waits that are expected to run out.
constexpr double kShortWait = 0.2;

class LoopbackTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(server.startServer(0, 5), 0);
        ASSERT_EQ(client.connect(kLoopback, server.getLocalPort(), kWait), 0);
        peer.reset(server.accept());
        ASSERT_NE(peer, nullptr);
    }

    TCPServerSocket server;
    TCPSocket client;
    std::unique_ptr<TCPSocket> peer;
};

}  // namespace nettest

#endif  // REMOTECTRL_TESTS_NET_LOOPBACK_H
