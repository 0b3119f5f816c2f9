// Block transfers, line sending, the data hook, failed waits and vanished peers.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/net/loopback.h"

namespace {

using nettest::kLoopback;
using nettest::kShortWait;
using nettest::kWait;

class Stream : public nettest::LoopbackTest {};

std::vector<char> patternBytes(int length) {
    std::vector<char> bytes(static_cast<size_t>(length));
    for (int i = 0; i < length; ++i)
        bytes[static_cast<size_t>(i)] = static_cast<char>(i * 7 % 251);
    return bytes;
}

TEST_F(Stream, LargeBlockArrivesWhole) {
    constexpr int kLength = 200000;
    const std::vector<char> sent = patternBytes(kLength);
    std::vector<char> received(kLength);
    auto reading =
        std::async(std::launch::async, [&] { return peer->recv(received.data(), kLength, kWait); });

    EXPECT_EQ(client.send(sent.data(), kLength, kWait), kLength);
    EXPECT_EQ(reading.get(), kLength);
    EXPECT_EQ(received, sent);
}

TEST_F(Stream, RecvReportsPeerThatClosesEarly) {
    const std::vector<char> sent = patternBytes(40);
    ASSERT_EQ(peer->send(sent.data(), 40, kWait), 40);
    peer.reset();

    char buffer[100] = {};
    EXPECT_EQ(client.recv(buffer, 100, kWait), 0);
    EXPECT_EQ(std::string(buffer, 40), std::string(sent.begin(), sent.end()));
}

TEST_F(Stream, SendTimesOutWhenPeerDoesNotRead) {
    const int small = 4096;
    setsockopt(client.getDescriptor(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    setsockopt(peer->getDescriptor(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    const std::vector<char> block = patternBytes(4 << 20);
    EXPECT_EQ(client.send(block.data(), static_cast<int>(block.size()), kShortWait), -10);
}

TEST_F(Stream, SendLinePutsTextAndLineFeedOnWire) {
    EXPECT_EQ(client.sendLine("OK", 1.0), 3);
    char wire[3] = {};
    ASSERT_EQ(peer->recv(wire, 3, kWait), 3);
    EXPECT_EQ(std::string(wire, 3), "OK\n");
    EXPECT_EQ(peer->recvReady(kShortWait), -10);
}

TEST_F(Stream, RecvReadyReportsClosedPeer) {
    EXPECT_EQ(client.recvReady(kShortWait), -10);
    peer.reset();
    EXPECT_EQ(client.recvReady(kWait), 0);
}

TEST_F(Stream, SendToVanishedPeerFailsWithoutSignal) {
    peer.reset();
    ASSERT_EQ(client.recvReady(kWait), 0);
    // The first send after the close still succeeds; the peer answers it with a reset.
    int result = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < deadline) {
        result = client.send("x", 1, kWait);
        if (result != 1) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(result, -11);
    EXPECT_EQ(client.sendLine("OK", kWait), -11);
}

struct HookCall {
    const void* data;
    int length;
    int direction;
};

std::vector<HookCall> gHookCalls;

void recordHookCall(const void* data, int length, int direction) {
    gHookCalls.push_back({data, length, direction});
}

TEST_F(Stream, DataHookSeesCompletedTransfersOnly) {
    gHookCalls.clear();
    client.setDataHook(recordHookCall);
    peer->setDataHook(recordHookCall);
    const char sent[] = "abc";
    char received[3] = {};

    ASSERT_EQ(client.send(sent, 3, kWait), 3);
    ASSERT_EQ(peer->recv(received, 3, kWait), 3);
    ASSERT_EQ(client.send(sent, 0, kWait), 0);
    ASSERT_EQ(client.sendLine("OK", kWait), 3);
    std::string line;
    ASSERT_EQ(peer->getLine(line, kWait), 0);
    ASSERT_EQ(peer->recv(received, 3, kShortWait), -10);

    ASSERT_EQ(gHookCalls.size(), 4u);
    EXPECT_EQ(gHookCalls[0].data, sent);
    EXPECT_EQ(gHookCalls[0].length, 3);
    EXPECT_EQ(gHookCalls[0].direction, 0);
    EXPECT_EQ(gHookCalls[1].data, received);
    EXPECT_EQ(gHookCalls[1].length, 3);
    EXPECT_EQ(gHookCalls[1].direction, 1);
    EXPECT_EQ(gHookCalls[2].length, 0);
    EXPECT_EQ(gHookCalls[2].direction, 0);
    EXPECT_EQ(gHookCalls[3].length, 3);
    EXPECT_EQ(gHookCalls[3].direction, 0);
}

// Each waiting operation with the code it gives when its wait fails.
struct WaitingOperation {
    const char* name;
    int (*run)(CommunicatingSocket& socket, double timeout);
    int failedWaitCode;
};

const WaitingOperation kWaitingOperations[] = {
    {"send", [](CommunicatingSocket& s, double t) { return s.send("data", 4, t); }, -13},
    {"recv",
     [](CommunicatingSocket& s, double t) {
         char buffer[4];
         return s.recv(buffer, 4, t);
     },
     -13},
    {"getLine",
     [](CommunicatingSocket& s, double t) {
         std::string line;
         return s.getLine(line, t);
     },
     -13},
    {"recvReady", [](CommunicatingSocket& s, double t) { return s.recvReady(t); }, -12},
};

void expectFailedWaits(CommunicatingSocket& socket, double timeout) {
    for (const WaitingOperation& operation : kWaitingOperations) {
        SCOPED_TRACE(operation.name);
        errno = 0;
        EXPECT_EQ(operation.run(socket, timeout), operation.failedWaitCode);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST_F(Stream, NegativeTimeOutFailsTheWait) {
    ASSERT_EQ(peer->sendLine("ready", kWait), 6);
    ASSERT_EQ(client.recvReady(kWait), 0);
    expectFailedWaits(client, -1.0);
}

TEST(Connect, NegativeTimeOutFailsTheWait) {
    TCPServerSocket server;
    ASSERT_EQ(server.startServer(0, 5), 0);
    TCPSocket client;
    errno = 0;
    EXPECT_EQ(client.connect(kLoopback, server.getLocalPort(), -1.0), -12);
    EXPECT_EQ(errno, EINVAL);
}

// Moves sockets to a descriptor number that select's fixed-size sets cannot hold.
class BeyondSelectLimit : public nettest::LoopbackTest {
protected:
    static constexpr int kHighDescriptor = 1500;

    void SetUp() override {
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &original_), 0);
        if (original_.rlim_cur <= kHighDescriptor) {
            if (original_.rlim_max <= kHighDescriptor) GTEST_SKIP() << "descriptor limit too low";
            rlimit raised = original_;
            raised.rlim_cur = kHighDescriptor + 1;
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
            restore_ = true;
        }
        if (fcntl(kHighDescriptor, F_GETFD) != -1) GTEST_SKIP() << "descriptor already in use";
        nettest::LoopbackTest::SetUp();
    }

    void TearDown() override {
        if (restore_) setrlimit(RLIMIT_NOFILE, &original_);
    }

    // The returned descriptor is to be owned by a socket object.
    static int moveHigh(int fd, bool closeOriginal) {
        const int high = dup2(fd, kHighDescriptor);
        if (closeOriginal) close(fd);
        return high;
    }

private:
    rlimit original_{};
    bool restore_ = false;
};

TEST_F(BeyondSelectLimit, WaitsFailInsteadOfOverrunningTheSet) {
    ASSERT_EQ(peer->sendLine("ready", kWait), 6);
    TCPSocket high(moveHigh(client.getDescriptor(), false));
    ASSERT_EQ(high.getDescriptor(), kHighDescriptor);
    expectFailedWaits(high, kWait);
}

TEST_F(BeyondSelectLimit, ConnectWaitFails) {
    TCPSocket high(moveHigh(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), true));
    ASSERT_EQ(high.getDescriptor(), kHighDescriptor);
    errno = 0;
    EXPECT_EQ(high.connect(kLoopback, server.getLocalPort(), kWait), -12);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
