// Datagram sockets on the loopback address. No multicast group is joined: that would send
// membership reports off this machine.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/net/loopback.h"

namespace {

using nettest::kLoopback;
using nettest::kShortWait;
using nettest::kWait;

struct ConstructorCase {
    const char* name;
    std::function<std::unique_ptr<UDPSocket>()> make;
    const char* localAddress;
    bool hasPort;
};

const ConstructorCase kConstructorCases[] = {
    {"Unbound", [] { return std::make_unique<UDPSocket>(); }, "0.0.0.0", false},
    {"LocalPort", [] { return std::make_unique<UDPSocket>(0); }, "0.0.0.0", true},
    {"LocalAddressAndPort", [] { return std::make_unique<UDPSocket>(kLoopback, 0); }, kLoopback,
     true},
};

void PrintTo(const ConstructorCase& row, std::ostream* out) {
    *out << row.name;
}

class UdpConstructor : public ::testing::TestWithParam<ConstructorCase> {};

TEST_P(UdpConstructor, BindsAndEnablesBroadcastAndNonBlocking) {
    const std::unique_ptr<UDPSocket> socket = GetParam().make();
    int broadcast = 0;
    socklen_t length = sizeof broadcast;
    ASSERT_EQ(getsockopt(socket->getDescriptor(), SOL_SOCKET, SO_BROADCAST, &broadcast, &length),
              0);
    EXPECT_EQ(broadcast, 1);
    EXPECT_NE(fcntl(socket->getDescriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(socket->getLocalAddress(), GetParam().localAddress);
    EXPECT_EQ(socket->getLocalPort() != 0, GetParam().hasPort);
}

INSTANTIATE_TEST_SUITE_P(Udp, UdpConstructor, ::testing::ValuesIn(kConstructorCases),
                         [](const auto& info) { return std::string(info.param.name); });

class Udp : public ::testing::Test {
protected:
    UDPSocket receiver{kLoopback, 0};
    UDPSocket sender;
};

TEST_F(Udp, DatagramArrivesWithSenderAddressAndPort) {
    ASSERT_EQ(sender.sendTo("hello", 5, kLoopback, receiver.getLocalPort()), 0);

    char buffer[16] = {};
    std::string address;
    unsigned short port = 0;
    ASSERT_EQ(receiver.recvFrom(buffer, sizeof buffer, address, port, kWait), 5);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(address, kLoopback);
    EXPECT_EQ(port, sender.getLocalPort());
}

TEST_F(Udp, LongDatagramIsCutAndItsRestLost) {
    const std::string datagram(100, 'd');
    ASSERT_EQ(sender.sendTo(datagram.data(), 100, kLoopback, receiver.getLocalPort()), 0);

    char buffer[10] = {};
    std::string address;
    unsigned short port = 0;
    ASSERT_EQ(receiver.recvFrom(buffer, 10, address, port, kWait), 10);
    EXPECT_EQ(std::string(buffer, 10), datagram.substr(0, 10));
    EXPECT_EQ(receiver.recvFrom(buffer, 10, address, port, kShortWait), -10);
}

TEST_F(Udp, RecvFromTimeOutAndFailedWait) {
    char buffer[4];
    std::string address = "unchanged";
    unsigned short port = 7;
    EXPECT_EQ(receiver.recvFrom(buffer, 4, address, port, kShortWait), -10);
    EXPECT_EQ(receiver.recvFrom(buffer, 4, address, port, -1.0), -12);
    EXPECT_EQ(address, "unchanged");
    EXPECT_EQ(port, 7);
}

TEST_F(Udp, DisconnectDropsFixedPeer) {
    EXPECT_EQ(sender.disconnect(), 0);

    ASSERT_EQ(sender.connect(kLoopback, receiver.getLocalPort(), kWait), 0);
    EXPECT_EQ(sender.getForeignPort(), receiver.getLocalPort());
    EXPECT_EQ(sender.disconnect(), 0);
    EXPECT_EQ(sender.getForeignAddress(), "");
    EXPECT_EQ(sender.getForeignPort(), 0);
}

TEST_F(Udp, ConnectedSocketSendsThroughInheritedSend) {
    ASSERT_EQ(sender.connect(kLoopback, receiver.getLocalPort(), kWait), 0);
    ASSERT_EQ(sender.send("ping", 4, kWait), 4);
    char buffer[4] = {};
    EXPECT_EQ(receiver.recv(buffer, 4, kWait), 4);
    EXPECT_EQ(std::string(buffer, 4), "ping");
}

TEST_F(Udp, NegativeLengthIsRefused) {
    char buffer[4];
    std::string address;
    unsigned short port = 0;
    EXPECT_EQ(sender.sendTo(buffer, -1, kLoopback, receiver.getLocalPort()), -1);
    EXPECT_EQ(receiver.recvFrom(buffer, -1, address, port, kShortWait), -1);
}

TEST_F(Udp, MulticastOptionsWithoutJoining) {
    EXPECT_EQ(sender.setMulticastTTL(4), 0);
    unsigned char ttl = 0;
    socklen_t length = sizeof ttl;
    ASSERT_EQ(getsockopt(sender.getDescriptor(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, &length), 0);
    EXPECT_EQ(ttl, 4);

    EXPECT_EQ(sender.joinGroup("localhost"), -1);
    EXPECT_EQ(sender.leaveGroup("239.1.2.3"), -1);  // never joined
}

}  // namespace
