// Connecting, listening and accepting, and waking threads blocked on a socket.
#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/net/loopback.h"

namespace {

using nettest::kLoopback;
using nettest::kWait;

bool isNonBlocking(const Socket& socket) {
    return (fcntl(socket.getDescriptor(), F_GETFL) & O_NONBLOCK) != 0;
}

TEST(Connect, RefusedWhereNothingListens) {
    TCPServerSocket reserved;  // bound but not listening, so the port cannot be taken meanwhile
    ASSERT_EQ(reserved.setLocalPort(0), 0);
    TCPSocket client;
    EXPECT_EQ(client.connect(kLoopback, reserved.getLocalPort(), kWait), -12);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_TRUE(isNonBlocking(client));
}

TEST(Connect, TimesOutWhenListenerDropsConnectionRequests) {
    // A listener that never accepts drops new connection requests once its queue is full.
    TCPServerSocket server;
    ASSERT_EQ(server.startServer(0, 0), 0);
    std::vector<std::unique_ptr<TCPSocket>> clients;
    int result = 0;
    for (int attempt = 0; attempt < 16 && result == 0; ++attempt) {
        clients.push_back(std::make_unique<TCPSocket>());
        result = clients.back()->connect(kLoopback, server.getLocalPort(), 0.5);
    }
    if (result == 0) GTEST_SKIP() << "the system queued every connection request";
    EXPECT_EQ(result, -10);
}

TEST(StartServer, PortZeroListensOnSystemChosenPort) {
    TCPServerSocket server;
    ASSERT_EQ(server.startServer(0, 5), 0);
    EXPECT_NE(server.getLocalPort(), 0);
    EXPECT_EQ(server.getLocalAddress(), "0.0.0.0");

    TCPSocket client;
    EXPECT_EQ(client.connect(kLoopback, server.getLocalPort(), kWait), 0);
}

TEST(StartServer, TakenPortFailsTheBindOnly) {
    TCPServerSocket first;
    ASSERT_EQ(first.startServer(0, 5), 0);
    TCPServerSocket second;
    EXPECT_EQ(second.startServer(first.getLocalPort(), 5), -1);
}

class Accept : public nettest::LoopbackTest {};

TEST_F(Accept, ConnectionKnowsBothEnds) {
    EXPECT_EQ(peer->getForeignAddress(), kLoopback);
    EXPECT_EQ(peer->getForeignPort(), client.getLocalPort());
    EXPECT_EQ(client.getForeignAddress(), kLoopback);
    EXPECT_EQ(client.getForeignPort(), server.getLocalPort());
    EXPECT_EQ(peer->getLocalPort(), server.getLocalPort());
}

TEST_F(Accept, ConnectionIsBlockingAndCarriesLines) {
    EXPECT_FALSE(isNonBlocking(*peer));
    ASSERT_EQ(client.sendLine("hello", kWait), 6);
    std::string line;
    ASSERT_EQ(peer->getLine(line, kWait), 0);
    EXPECT_EQ(line, "hello");
}

TEST_F(Accept, QueuedClientsComeInOrder) {
    TCPSocket second;
    TCPSocket third;
    ASSERT_EQ(second.connect(kLoopback, server.getLocalPort(), kWait), 0);
    ASSERT_EQ(third.connect(kLoopback, server.getLocalPort(), kWait), 0);

    std::unique_ptr<TCPSocket> secondPeer(server.accept());
    std::unique_ptr<TCPSocket> thirdPeer(server.accept());
    ASSERT_NE(secondPeer, nullptr);
    ASSERT_NE(thirdPeer, nullptr);
    EXPECT_EQ(secondPeer->getForeignPort(), second.getLocalPort());
    EXPECT_EQ(thirdPeer->getForeignPort(), third.getLocalPort());
}

TEST_F(Accept, ShutdownWakesBlockedAccept) {
    auto accepting = std::async(std::launch::async, [this] { return server.accept(); });
    EXPECT_EQ(server.shutdownBoth(), 0);

    if (accepting.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        ADD_FAILURE() << "accept did not wake";
        TCPSocket rescuer;  // releases the blocked accept so the thread can end
        rescuer.connect(kLoopback, server.getLocalPort(), kWait);
    }
    std::unique_ptr<TCPSocket> accepted(accepting.get());
    EXPECT_EQ(accepted, nullptr);
}

TEST_F(Accept, ShutdownWakesBlockedReaderAsClosedPeer) {
    auto reading = std::async(std::launch::async, [this] {
        std::string line = "stale";
        const int result = peer->getLine(line, 10.0);
        return std::make_pair(result, line);
    });
    EXPECT_EQ(peer->shutdownBoth(), 0);

    ASSERT_EQ(reading.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const auto [result, line] = reading.get();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(line, "");
    EXPECT_EQ(peer->send("x", 1, kWait), -11);
}

}  // namespace
