// Name resolution into address records, the clock, and local address queries and binding.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/time.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/net/loopback.h"

namespace {

using socket_detail::fillAddr;

// The resolver falls through to DNS, and the configured server may be off this machine. A label
// longer than 63 bytes cannot be encoded into a query, so the look-up fails before any packet.
std::string unresolvableName() {
    return std::string(64, 'a') + ".invalid";
}

const unsigned char* bytesOf(const void* field) {
    return static_cast<const unsigned char*>(field);
}

sockaddr_in filledWithGarbage() {
    sockaddr_in addr;
    std::memset(&addr, 0xAB, sizeof addr);
    return addr;
}

TEST(FillAddr, DottedAddressGivesFamilyPortAndAddressInNetworkOrder) {
    sockaddr_in addr = filledWithGarbage();
    ASSERT_TRUE(fillAddr("127.0.0.1", 8080, addr));

    EXPECT_EQ(addr.sin_family, AF_INET);
    const unsigned char* port = bytesOf(&addr.sin_port);
    EXPECT_EQ(port[0], 0x1F);
    EXPECT_EQ(port[1], 0x90);
    const unsigned char* host = bytesOf(&addr.sin_addr);
    EXPECT_EQ(host[0], 127);
    EXPECT_EQ(host[1], 0);
    EXPECT_EQ(host[2], 0);
    EXPECT_EQ(host[3], 1);
    for (unsigned char zero : addr.sin_zero)
        EXPECT_EQ(zero, 0);
}

TEST(FillAddr, UnresolvableNameLeavesClearedRecord) {
    sockaddr_in addr = filledWithGarbage();
    if (fillAddr(unresolvableName(), 8080, addr)) GTEST_SKIP() << "the name resolved here";

    const sockaddr_in cleared = [] {
        sockaddr_in zero;
        std::memset(&zero, 0, sizeof zero);
        zero.sin_family = AF_INET;
        return zero;
    }();
    EXPECT_EQ(std::memcmp(&addr, &cleared, sizeof addr), 0);
}

TEST(GetPrecTime, LiesBetweenTwoClockReadings) {
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    const double now = getPrecTime();
    gettimeofday(&after, nullptr);

    EXPECT_GE(now, before.tv_sec + before.tv_usec / 1e6 - 1e-6);
    EXPECT_LE(now, after.tv_sec + after.tv_usec / 1e6 + 1e-6);
}

TEST(LocalAddress, ClosedDescriptorReportsNothing) {
    TCPSocket socket(-1);
    EXPECT_EQ(socket.getLocalAddress(), "");
    EXPECT_EQ(socket.getLocalPort(), 0);
    EXPECT_EQ(socket.getForeignAddress(), "");
    EXPECT_EQ(socket.getForeignPort(), 0);
    EXPECT_EQ(socket.getDescriptor(), -1);
}

TEST(LocalAddress, UnboundSocketHasWildcardAddressAndNoPort) {
    TCPSocket socket;
    EXPECT_EQ(socket.getLocalAddress(), "0.0.0.0");
    EXPECT_EQ(socket.getLocalPort(), 0);
}

TEST(LocalAddress, PortZeroBindsAPortChosenBySystem) {
    TCPServerSocket socket;
    ASSERT_EQ(socket.setLocalPort(0), 0);
    EXPECT_NE(socket.getLocalPort(), 0);
    EXPECT_EQ(socket.getLocalAddress(), "0.0.0.0");
}

TEST(LocalAddress, BindsNamedAddress) {
    UDPSocket socket;
    ASSERT_EQ(socket.setLocalAddressAndPort(nettest::kLoopback, 0), 0);
    EXPECT_EQ(socket.getLocalAddress(), nettest::kLoopback);
    EXPECT_NE(socket.getLocalPort(), 0);
}

TEST(LocalAddress, PortHeldByListenerCannotBeBound) {
    TCPServerSocket holder;
    ASSERT_EQ(holder.startServer(0, 5), 0);
    TCPServerSocket second;
    EXPECT_EQ(second.setLocalPort(holder.getLocalPort()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
}

}  // namespace
