// The socket layer over real connections on 127.0.0.1. No multicast group is joined: that would
// send membership reports off this machine.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/support/bounds.h"
#include "tests/support/row_name.h"

namespace {

using namespace net;
constexpr double kWait = testsupport::kWaitSeconds;
constexpr double kShort = testsupport::kShortWaitSeconds;
constexpr const char* kLoopback = "127.0.0.1";

bool isNonBlocking(const Socket& socket) {
    return (fcntl(socket.getDescriptor(), F_GETFL) & O_NONBLOCK) != 0;
}

// fillAddr's result, family, and bytes from the port on, filled over garbage to show every byte.
std::string filledRecord(const std::string& name) {
    sockaddr_in addr;
    std::memset(&addr, 0xAB, sizeof addr);
    const bool resolved = socket_detail::fillAddr(name, 8080, addr);
    const std::string bytes(reinterpret_cast<char*>(&addr.sin_port), sizeof addr - 2);
    return std::to_string(resolved) + std::to_string(addr.sin_family) + bytes;
}

TEST(FillAddr, StoresPortAndAddressInNetworkOrderOrClearsTheRecord) {
    const std::string padding(8, '\0');  // AF_INET is 2 on every system we build for
    EXPECT_EQ(filledRecord(kLoopback), "12" + std::string("\x1F\x90\x7F\0\0\x01", 6) + padding);
    // A label over 63 bytes cannot be put in a query, so the look-up fails before any packet.
    EXPECT_EQ(filledRecord(std::string(64, 'a') + ".invalid"), "02" + std::string(14, '\0'));
}

// `client` connected through `server` to `peer`, the accepted far end.
class Loopback : public ::testing::Test {
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

enum Op { kLine, kRecv4, kReady, kSend4 };

// One waiting operation; `text` gets the line or the bytes received.
int run(CommunicatingSocket& socket, Op op, double timeout, std::string& text) {
    char bytes[5] = {};
    const int result = op == kLine    ? socket.getLine(text, timeout)
                       : op == kRecv4 ? socket.recv(bytes, 4, timeout)
                       : op == kReady ? socket.recvReady(timeout)
                                      : socket.send("data", 4, timeout);
    if (op != kLine) text = bytes;
    return result;
}

// The peer sends `sent` and may close; then the client repeats `op` once per text expected, and
// every call gives `result`.
struct Row {
    const char* name;
    std::string sent;
    bool peerCloses;
    Op op;
    double timeout;
    int result;
    std::vector<std::string> texts;
};

// getLine reads chunks of up to 510 bytes, so some rows put line ends around that boundary.
const std::string kY(509, 'y'), kZ(510, 'z');
const Row kRows[] = {
    {"SeveralLinesInOneChunk", "AB\nXY\n", false, kLine, kWait, 0, {"AB", "XY"}},
    {"LoneLineFeedIsEmptyLine", "\n", false, kLine, kWait, 0, {""}},
    {"LineEndIsLastByteOfChunk", kY + "\nab", true, kLine, kWait, 0, {kY, "ab"}},
    {"LineEndFirstInNextChunk", kZ + "\nk\n", false, kLine, kWait, 0, {kZ, "k"}},
    {"ZeroCutsLineAndTail", std::string("A\0B\nZ\0Q", 7), true, kLine, kWait, 0, {"A", "Z", ""}},
    {"OneByteTailKeptUntilClose", "AB\nX", true, kLine, kWait, 0, {"AB", "X", ""}},
    {"GetLineTimesOutEmpty", "", false, kLine, kShort, kTimedOut, {""}},
    {"PartLineKeptAcrossTimeOuts", "PART", false, kLine, kShort, kTimedOut, {"PART", "PART"}},
    {"RecvWholeBlock", "abcdef", false, kRecv4, kWait, 4, {"abcd"}},
    {"RecvPartialBlockTimesOut", "ab", false, kRecv4, kShort, kTimedOut, {"ab"}},
    {"RecvPeerClosedEarly", "ab", true, kRecv4, kWait, 0, {"ab"}},
    {"RecvReadyOnClosedPeer", "", true, kReady, kWait, 0, {""}},
    {"NegativeTimeOutGetLine", "a\n", false, kLine, -1.0, kTransferWaitFailed, {""}},
    {"NegativeTimeOutSend", "", false, kSend4, -1.0, kTransferWaitFailed, {""}},
    {"NegativeTimeOutRecvReady", "a", false, kReady, -1.0, kReadyWaitFailed, {""}},
    {"ZeroTimeOutPolls", "", false, kReady, 0.0, kTimedOut, {""}},
    {"HugeTimeOutWaitsForData", "a", false, kReady, 1e300, 0, {""}},
};

class Exchange : public Loopback, public ::testing::WithParamInterface<Row> {};

TEST_P(Exchange, GivesTheTextsAndResult) {
    const Row& row = GetParam();
    const int length = static_cast<int>(row.sent.size());
    ASSERT_EQ(peer->send(row.sent.data(), length, kWait), length);
    if (row.peerCloses) peer.reset();
    errno = 0;
    for (const std::string& expected : row.texts) {
        std::string text = "stale";
        EXPECT_EQ(run(client, row.op, row.timeout, text), row.result);
        EXPECT_EQ(text, expected);
    }
    EXPECT_TRUE(row.timeout >= 0 || errno == EINVAL) << "a failed wait leaves EINVAL";
}

INSTANTIATE_TEST_SUITE_P(Rows, Exchange, ::testing::ValuesIn(kRows), testsupport::RowName());

std::vector<std::string> gHookLog(2);  // by direction: each is written by one thread only

// A block far larger than the socket buffers goes in pieces and is reported once, whole.
TEST_F(Loopback, LargeBlockArrivesWholeAndTheHookSeesCompletedTransfersOnly) {
    const CommunicatingSocket::DataHook hook = [](const void*, int length, int direction) {
        gHookLog.at(direction) += std::to_string(length) + " ";
    };
    client.setDataHook(hook);
    peer->setDataHook(hook);
    std::vector<char> sent(200000), received(sent.size());
    std::iota(sent.begin(), sent.end(), 0);
    auto reading =
        std::async(std::launch::async, [&] { return peer->recv(received.data(), 200000, kWait); });
    EXPECT_EQ(client.send(sent.data(), 200000, kWait), 200000);
    EXPECT_EQ(reading.get(), 200000);
    EXPECT_EQ(received, sent);
    ASSERT_EQ(client.send("abc", -4, kWait), 0);
    ASSERT_EQ(client.sendLine("OK", kWait), 3);
    EXPECT_EQ(gHookLog[0] + "| " + gHookLog[1], "200000 0 3 | 200000 ");
}

// shutdownBoth is how threads blocked in accept or getLine are woken; sends then fail, and must
// not raise SIGPIPE, which would end the test program.
TEST_F(Loopback, BindsConnectsShutsDownAndServesDescriptorsBeyondSelect) {
    TCPServerSocket second;
    EXPECT_EQ(second.setLocalPort(server.getLocalPort()), -1);
    EXPECT_EQ(second.startServer(server.getLocalPort(), 5), -1) << "only the bind fails";
    TCPServerSocket reserved;  // bound but not listening, so the port cannot be taken meanwhile
    ASSERT_EQ(reserved.setLocalPort(0), 0);
    TCPSocket refused;
    EXPECT_EQ(refused.connect(kLoopback, reserved.getLocalPort(), kWait), kConnectFailed);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_TRUE(isNonBlocking(refused));
    TCPSocket unwaited;
    EXPECT_EQ(unwaited.connect(kLoopback, server.getLocalPort(), -1.0), kConnectFailed);
    EXPECT_EQ(errno, EINVAL);
    TCPSocket closed(-1);
    EXPECT_EQ(closed.recvReady(kWait), kReadyWaitFailed);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(peer->getForeignPort(), client.getLocalPort());
    EXPECT_EQ(client.getForeignAddress() + std::to_string(client.getForeignPort()),
              kLoopback + std::to_string(server.getLocalPort()));
    EXPECT_EQ(server.shutdownBoth(), 0);
    EXPECT_EQ(server.accept(), nullptr);
    EXPECT_EQ(peer->shutdownBoth(), 0);
    std::string line = "stale";
    EXPECT_EQ(peer->getLine(line, kWait), 0);
    EXPECT_EQ(line, "");
    EXPECT_EQ(peer->send("x", 1, kWait), kIoFailed);
}

// A host may hold thousands of files: a connection on a descriptor past select()'s 1024 works.
TEST_F(Loopback, ServesADescriptorPastOneThousandAndTwentyThree) {
    constexpr int kHigh = 1100;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max <= kHigh) GTEST_SKIP();
    if (limit.rlim_cur <= kHigh) limit.rlim_cur = kHigh + 1;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    if (fcntl(kHigh, F_GETFD) != -1) GTEST_SKIP() << "descriptor already in use";
    TCPSocket high(dup2(client.getDescriptor(), kHigh));
    ASSERT_EQ(peer->sendLine("far", kWait), 4);
    std::string text;
    EXPECT_EQ(run(high, kLine, kWait, text), 0);
    EXPECT_EQ(text, "far");
    EXPECT_EQ(run(high, kSend4, kWait, text), 4);
}

// A wait takes its whole seconds too, not only the fraction: data that comes after more than a
// second is still waited for.
TEST_F(Loopback, AWaitLongerThanASecondTakesItsWholeSeconds) {
    auto late = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        return peer->sendLine("late", kWait);
    });
    EXPECT_EQ(client.recvReady(3.5), 0);
    EXPECT_EQ(late.get(), 5);
    EXPECT_EQ(Socket::cleanUp(), 0);
}

// No program the host starts may inherit a socket of ours and keep its port bound.
TEST_F(Loopback, EverySocketIsCloseOnExec) {
    TCPSocket fresh;
    for (const Socket* socket :
         std::initializer_list<const Socket*>{&server, &client, peer.get(), &fresh})
        EXPECT_TRUE(fcntl(socket->getDescriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(Loopback, LinesPastTheBoundAreReportedOnceAndDropped) {
    client.setMaxLineLength(600);
    const std::string fits(600, 'f'), tooLong(601, 't'), wayTooLong(2000, 'w');
    const std::string sent = fits + "\n" + tooLong + "\n" + wayTooLong + "\nok\n";
    ASSERT_EQ(peer->send(sent.data(), static_cast<int>(sent.size()), kWait), int(sent.size()));
    std::string text;
    for (const auto& [result, line] : std::vector<std::pair<int, std::string>>{
             {0, fits}, {kLineTooLong, ""}, {kLineTooLong, ""}, {0, "ok"}}) {
        EXPECT_EQ(client.getLine(text, kWait), result);
        EXPECT_EQ(text, line);
    }
}

// A restarted server finds its last connection in the closing wait; it can listen on the port
// again only when both it and its predecessor asked for address reuse.
TEST(ReuseAddress, ListensBesideAClosingWait) {
    unsigned short port = 0;
    {
        TCPServerSocket server;
        ASSERT_EQ(server.setReuseAddress(), 0);
        ASSERT_EQ(server.startServer(0, 5), 0);
        port = server.getLocalPort();
        TCPSocket client;
        ASSERT_EQ(client.connect(kLoopback, port, kWait), 0);
        std::unique_ptr<TCPSocket>(server.accept()).reset();  // the server side closes first
        std::string text;
        client.getLine(text, kWait);
    }
    TCPServerSocket plain;
    EXPECT_NE(plain.startServer(port, 5), 0);
    TCPServerSocket reusing;
    ASSERT_EQ(reusing.setReuseAddress(), 0);
    EXPECT_EQ(reusing.startServer(kLoopback, port, 5), 0);
}

// Datagram sockets are broadcast-enabled and non-blocking from construction.
TEST(Udp, DatagramsArriveCutToTheBufferWithTheirSender) {
    UDPSocket receiver(kLoopback, 0), sender, onPort(0);
    for (const UDPSocket* socket : {&receiver, &sender, &onPort}) {
        int broadcast = 0;
        socklen_t length = sizeof broadcast;
        getsockopt(socket->getDescriptor(), SOL_SOCKET, SO_BROADCAST, &broadcast, &length);
        EXPECT_TRUE(broadcast == 1 && isNonBlocking(*socket));
    }
    EXPECT_EQ(receiver.getLocalAddress() + onPort.getLocalAddress(), "127.0.0.10.0.0.0");
    EXPECT_TRUE(receiver.getLocalPort() != 0 && onPort.getLocalPort() != 0);
    char buffer[16] = {};
    std::string address = "unchanged";
    unsigned short port = 7;
    EXPECT_EQ(receiver.recvFrom(buffer, 4, address, port, -1.0), kReadyWaitFailed);
    EXPECT_EQ(receiver.recvFrom(buffer, -1, address, port, kShort), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sender.sendTo(buffer, -1, kLoopback, receiver.getLocalPort()), -1);
    EXPECT_EQ(address + std::to_string(port), "unchanged7");
    ASSERT_EQ(sender.sendTo("hello, world", 12, kLoopback, receiver.getLocalPort()), 0);
    ASSERT_EQ(receiver.recvFrom(buffer, 5, address, port, kWait), 5);
    EXPECT_EQ(std::string(buffer) + " from " + address, "hello from 127.0.0.1");
    EXPECT_EQ(port, sender.getLocalPort());
    EXPECT_EQ(receiver.recvFrom(buffer, 5, address, port, kShort), kTimedOut) << "rest is lost";
    EXPECT_EQ(sender.setMulticastTTL(4), 0);
}

}  // namespace
