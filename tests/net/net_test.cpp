// The socket layer over real connections on 127.0.0.1. No multicast group is joined: that would
// send membership reports off this machine.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <numeric>
#include <string>
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

int optionValue(const Socket& socket, int level, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(socket.getDescriptor(), level, name, &value, &length) == 0 ? value : -1;
}

TEST(ResultName, NamesEveryCode) {
    const std::pair<int, std::string> kNames[] = {
        {5, "completed"},
        {0, "completed"},
        {kTimedOut, "timed out"},
        {kIoFailed, "send or receive failed"},
        {kConnectOrWaitFailed, "connection or wait failed"},
        {kTransferWaitFailed, "wait failed"},
        {kLineTooLong, "line too long"},
        {-1, "failed"}};
    for (const auto& [code, name] : kNames)
        EXPECT_EQ(resultName(code), name) << code;
}

// A name that does not resolve (a label over 63 bytes fails before any query is sent) leaves the
// record cleared but for its family: a call with it goes to 0.0.0.0:0, nowhere else.
TEST(FillAddr, ClearsTheRecordOfANameThatDoesNotResolve) {
    sockaddr_in addr, cleared{};
    std::memset(&addr, 0xAB, sizeof addr);
    cleared.sin_family = AF_INET;
    EXPECT_FALSE(socket_detail::fillAddr(std::string(64, 'a') + ".invalid", 8080, addr));
    EXPECT_EQ(std::memcmp(&addr, &cleared, sizeof addr), 0);
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

enum Op { kLine, kKeptLine, kBoundedLine /* at most 600 bytes */, kRecv4, kReady, kSend4 };
enum PeerEnd { kStays, kCloses, kResets };

// The peer sends `sent` and may end the connection; then the client repeats `op` once per call
// expected, each giving "result:text", the text being the line or the bytes received.
struct Row {
    const char* name;
    std::string sent;
    PeerEnd peerEnd;
    Op op;
    double timeout;
    std::vector<std::string> calls;
};

const std::string kTimeOut = std::to_string(kTimedOut) + ":",
                  kTooLong = std::to_string(kLineTooLong) + ":";
const std::string kNoReady = std::to_string(kConnectOrWaitFailed) + ":";
const std::string kNoTransfer = std::to_string(kTransferWaitFailed) + ":",
                  kBroken = std::to_string(kIoFailed) + ":";
// getLine reads chunks of up to 510 bytes, so some rows put line ends around that boundary.
const std::string kY(509, 'y'), kZ(510, 'z'), kF(600, 'f'), kZeroes("A\0B\nZ\0Q", 7);
const std::string kOverlong =
    kF + "\n" + std::string(601, 't') + "\n" + std::string(2000, 'w') + "\nok\n";
const Row kRows[] = {
    {"SeveralLinesInOneChunk", "AB\nXY\n", kStays, kLine, kWait, {"0:AB", "0:XY"}},
    {"LineEndIsLastByteOfChunk", kY + "\nab", kCloses, kLine, kWait, {"0:" + kY, "0:ab"}},
    {"LineEndFirstInNextChunk", kZ + "\nk\n", kStays, kLine, kWait, {"0:" + kZ, "0:k"}},
    {"ZeroCutsLineAndTail", kZeroes, kCloses, kLine, kWait, {"0:A", "0:Z", "0:"}},
    {"PartLineDropped", "PART", kStays, kLine, kShort, {kTimeOut + "PART", kTimeOut}},
    {"PartLineKept", "PART", kStays, kKeptLine, kShort, {kTimeOut + "PART", kTimeOut + "PART"}},
    {"ResetDropsCutOffLine", "PART", kResets, kKeptLine, kWait, {kBroken, "0:"}},
    {"Overlong", kOverlong, kStays, kBoundedLine, kWait, {"0:" + kF, kTooLong, kTooLong, "0:ok"}},
    {"RecvPartialBlockTimesOut", "ab", kStays, kRecv4, kShort, {kTimeOut + "ab"}},
    {"RecvPeerClosedEarly", "ab", kCloses, kRecv4, kWait, {"0:ab"}},
    {"NegativeTimeOutGetLine", "a\n", kStays, kLine, -1.0, {kNoTransfer}},
    {"NegativeTimeOutSend", "", kStays, kSend4, -1.0, {kNoTransfer}},
    {"NegativeTimeOutRecvReady", "a", kStays, kReady, -1.0, {kNoReady}},
    {"ZeroTimeOutPolls", "", kStays, kReady, 0.0, {kTimeOut}},
    {"HugeTimeOutWaitsForData", "a", kStays, kReady, 1e300, {"0:"}},
};

constexpr linger kAbort{1, 0};  // a close that resets the connection

class Exchange : public Loopback, public ::testing::WithParamInterface<Row> {};

TEST_P(Exchange, GivesTheTextsAndResult) {
    const Row& row = GetParam();
    ASSERT_EQ(peer->send(row.sent.data(), int(row.sent.size()), kWait), int(row.sent.size()));
    if (row.peerEnd == kResets)
        setsockopt(peer->getDescriptor(), SOL_SOCKET, SO_LINGER, &kAbort, sizeof kAbort);
    if (row.peerEnd != kStays) peer.reset();
    if (row.op == kBoundedLine) client.setMaxLineLength(600);
    client.setKeepPartialLines(row.op == kKeptLine);
    errno = 0;
    for (const std::string& expected : row.calls) {
        std::string text = "stale";
        char bytes[5] = {};
        const int result = row.op <= kBoundedLine ? client.getLine(text, row.timeout)
                           : row.op == kRecv4     ? client.recv(bytes, 4, row.timeout)
                           : row.op == kReady     ? client.recvReady(row.timeout)
                                                  : client.send("data", 4, row.timeout);
        EXPECT_EQ(std::to_string(result) + ":" + (row.op <= kBoundedLine ? text : bytes), expected);
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
    ASSERT_EQ(client.sendWithin("ab", 2, kWait), 2);
    EXPECT_EQ(gHookLog[0] + "| " + gHookLog[1], "200000 0 3 2 | 200000 ");
}

// The peer reads nothing until the buffers are full, then everything: each byte goes out once,
// and a block that went out is complete even when the time-out (here none at all) had passed.
TEST_F(Loopback, SendWithinCountsWhatWentOutAndNeverSendsTwice) {
    std::vector<char> sent(16 << 20), received(sent.size());
    std::iota(sent.begin(), sent.end(), 0);
    const int total = int(sent.size()), first = peer->sendWithin(sent.data(), total, kShort);
    ASSERT_TRUE(first > 0 && first < total) << first;
    auto reading =
        std::async(std::launch::async, [&] { return client.recv(received.data(), total, kWait); });
    EXPECT_EQ(peer->sendWithin(sent.data() + first, total - first, kWait), total - first);
    EXPECT_EQ(reading.get(), total);
    EXPECT_EQ(received, sent);
    EXPECT_EQ(peer->sendWithin("late", 4, 0.0), 4);
}

// A wait cut short (here by a negative time-out) takes the kept start of a line with it, and the
// rest of that line when it comes: only whole lines are delivered.
TEST_F(Loopback, LineCutOffByAFailedWaitIsNeverDelivered) {
    client.setKeepPartialLines(true);
    std::string line;
    ASSERT_EQ(peer->send("STA", 3, kWait), 3);
    ASSERT_EQ(client.getLine(line, kShort), kTimedOut);
    EXPECT_EQ(client.getLine(line, -1.0), kTransferWaitFailed);
    EXPECT_EQ(client.lastError() + line, std::string("ppoll: ") + std::strerror(EINVAL));
    ASSERT_EQ(peer->sendLine("RT(0)\nnext", kWait), 11);
    EXPECT_EQ(client.getLine(line, kWait), 0);
    EXPECT_EQ(line, "next");
}

// No program the host starts may inherit our sockets. shutdownBoth wakes threads blocked in
// accept or getLine; sends then fail, and must not raise SIGPIPE, which would end the test.
TEST_F(Loopback, BindsConnectsAndShutsDown) {
    for (const Socket* socket : std::initializer_list<const Socket*>{&server, &client, peer.get()})
        EXPECT_TRUE(fcntl(socket->getDescriptor(), F_GETFD) & FD_CLOEXEC);
    TCPServerSocket second, reserved;  // reserved: bound but not listening, so the port stays ours
    EXPECT_EQ(second.startServer(server.getLocalPort(), 5), -1) << "only the bind fails";
    EXPECT_EQ(second.lastError(), "bind 0.0.0.0:" + std::to_string(server.getLocalPort()) + ": " +
                                      std::strerror(EADDRINUSE));
    ASSERT_EQ(reserved.setLocalPort(0), 0);
    TCPSocket refused, unwaited, closed(-1);
    EXPECT_EQ(refused.connect(kLoopback, reserved.getLocalPort(), kWait), kConnectOrWaitFailed);
    EXPECT_TRUE(errno == ECONNREFUSED && (fcntl(refused.getDescriptor(), F_GETFL) & O_NONBLOCK));
    EXPECT_EQ(refused.lastError(), "connect 127.0.0.1:" + std::to_string(reserved.getLocalPort()) +
                                       ": " + std::strerror(ECONNREFUSED));
    EXPECT_EQ(unwaited.connect(kLoopback, server.getLocalPort(), -1.0), kConnectOrWaitFailed);
    EXPECT_EQ(closed.recvReady(kWait), kConnectOrWaitFailed);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(client.setNoDelay(), 0);
    EXPECT_EQ(optionValue(client, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(client.getForeignAddress() + std::to_string(client.getForeignPort()),
              kLoopback + std::to_string(server.getLocalPort()));
    EXPECT_EQ(server.shutdownBoth() + peer->shutdownBoth(), 0);
    EXPECT_EQ(server.accept(), nullptr);
    std::string line = "stale";
    EXPECT_EQ(peer->getLine(line, kWait), 0);
    EXPECT_EQ(line + std::to_string(peer->send("x", 1, kWait)), std::to_string(kIoFailed));
}

// A host that closed its standard input gets a socket on descriptor 0, and one holding thousands
// of files gets descriptors past select()'s 1024: connections on both work.
TEST_F(Loopback, ServesDescriptorZeroAndOnePastOneThousandAndTwentyThree) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max <= 1100) GTEST_SKIP();
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 1101);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    for (const int descriptor : {0, 1100}) {
        TCPSocket moved(dup2(client.getDescriptor(), descriptor));  // replaces what was there
        ASSERT_EQ(peer->sendLine("far", kWait), 4);
        std::string text;
        EXPECT_EQ(moved.getLine(text, kWait), 0);
        EXPECT_EQ(text + std::to_string(moved.send("data", 4, kWait)), "far4");
    }
}

// A wait takes its whole seconds too, not only the fraction.
TEST_F(Loopback, AWaitLongerThanASecondTakesItsWholeSeconds) {
    auto late = std::async(std::launch::async, [&] {
        usleep(1100000);
        return peer->sendLine("late", kWait);
    });
    EXPECT_EQ(client.recvReady(3.5), 0);
    EXPECT_EQ(late.get(), 5);
}

// A socket that could not be created says why, rather than which call then met no descriptor.
TEST(LastError, KeepsWhyTheSocketCouldNotBeCreated) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit noFiles{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &noFiles), 0);
    TCPServerSocket server;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(server.startServer(0, 5), -2);
    EXPECT_EQ(server.lastError(), std::string("socket: ") + std::strerror(EMFILE));
}

// A restarted server finds its last connection in the closing wait; it can listen on the port
// again only when both it and its predecessor asked for address reuse.
TEST(ReuseAddress, ListensBesideAClosingWait) {
    unsigned short port = 0;
    {
        TCPServerSocket server;
        ASSERT_EQ(server.setReuseAddress() + server.startServer(0, 5), 0);
        port = server.getLocalPort();
        TCPSocket client;
        ASSERT_EQ(client.connect(kLoopback, port, kWait), 0);
        delete server.accept();   // the server side closes first
        client.recvReady(kWait);  // its close arrived
    }
    TCPServerSocket plain, reusing;
    EXPECT_NE(plain.startServer(port, 5), 0);
    EXPECT_EQ(reusing.setReuseAddress() + reusing.startServer(kLoopback, port, 5), 0);
}

// Datagram sockets are broadcast-enabled and non-blocking from construction.
TEST(Udp, DatagramsArriveCutToTheBufferWithTheirSender) {
    UDPSocket receiver(kLoopback, 0), sender, onPort(0);
    for (const UDPSocket* socket : {&receiver, &sender, &onPort}) {
        EXPECT_EQ(optionValue(*socket, SOL_SOCKET, SO_BROADCAST), 1);
        EXPECT_TRUE(fcntl(socket->getDescriptor(), F_GETFL) & O_NONBLOCK);
    }
    EXPECT_EQ(receiver.getLocalAddress() + onPort.getLocalAddress(), "127.0.0.10.0.0.0");
    EXPECT_TRUE(receiver.getLocalPort() != 0 && onPort.getLocalPort() != 0);
    const TCPSocket local(socket(AF_UNIX, SOCK_STREAM, 0));  // another family has no address
    EXPECT_EQ(local.getLocalAddress() + std::to_string(local.getLocalPort()), "0");
    char buffer[16] = {};
    std::string address = "unchanged";
    unsigned short port = 7;
    EXPECT_EQ(receiver.recvFrom(buffer, -1, address, port, kShort), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sender.sendTo(buffer, -1, kLoopback, receiver.getLocalPort()), -1);
    EXPECT_EQ(address + std::to_string(port), "unchanged7");
    ASSERT_EQ(sender.sendTo(buffer, 0, kLoopback, receiver.getLocalPort()), 0);
    EXPECT_EQ(receiver.recvFrom(buffer, 0, address, port, kWait), 0) << "an empty datagram";
    ASSERT_EQ(sender.sendTo("hello, world", 12, kLoopback, receiver.getLocalPort()), 0);
    ASSERT_EQ(receiver.recvFrom(buffer, 5, address, port, kWait), 5);
    EXPECT_EQ(std::string(buffer) + " from " + address, "hello from 127.0.0.1");
    EXPECT_EQ(port, sender.getLocalPort());
    EXPECT_EQ(receiver.recvFrom(buffer, 5, address, port, kShort), kTimedOut) << "rest is lost";
    EXPECT_EQ(sender.connect(kLoopback, receiver.getLocalPort(), kWait) + sender.disconnect(), 0);
    EXPECT_EQ(sender.setMulticastTTL(4), 0);
}

}  // namespace
