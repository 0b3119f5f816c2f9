// The server side of TLS over real loopback connections, against an OpenSSL client of the tests'
// own: lines and time-outs as on a plain connection, how the stream may end, and a reply sent in
// pieces while the session reads. Which clients the handshake refuses is the plug-in's test.
#include <sys/socket.h>

#include <future>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "net/tls_context.h"
#include "net/tls_stream.h"
#include "tests/support/tls_client.h"

namespace {

using namespace net;
using testsupport::kReplyBound;
constexpr double kWait = testsupport::kWaitSeconds;
constexpr double kShort = testsupport::kShortWaitSeconds;
constexpr double kLong = kReplyBound.count() / 1000.0;  // for 16 MiB under a sanitizer

// `client` connected through `server` to `stream`, the accepted end, with both handshakes made.
class TlsLoopback : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        context = TlsContext::forServer({testsupport::pkiFile("server.pem"),
                                         testsupport::pkiFile("server.key"),
                                         testsupport::pkiFile("ca.pem"),
                                         {},
                                         false},
                                        error);
        ASSERT_NE(context, nullptr) << error;
        ASSERT_EQ(server.startServer("127.0.0.1", 0, 5), 0);
        auto connected = std::async(
            std::launch::async, [&] { return client.connect(server.getLocalPort(), kReplyBound); });
        std::unique_ptr<TCPSocket> accepted(server.accept());
        ASSERT_NE(accepted, nullptr);
        stream = std::make_unique<TlsStream>(*context, std::move(accepted));
        EXPECT_EQ(stream->handshake(kWait), 0) << stream->lastError();
        ASSERT_TRUE(connected.get());
    }

    std::unique_ptr<TlsContext> context;
    TCPServerSocket server;
    testsupport::TlsClient client;
    std::unique_ptr<TlsStream> stream;
};

TEST_F(TlsLoopback, FramesLinesAsAPlainConnectionDoesAndEndsOnCloseNotify) {
    stream->setKeepPartialLines(true);
    stream->setMaxLineLength(600);
    ASSERT_TRUE(client.sendText("AB\nXY\n" + std::string(700, 'f') + "\nok\nPA"));
    std::string line;
    for (const std::string expected : {"0:AB", "0:XY", "-14:", "0:ok", "-10:PA"}) {
        const int result = stream->getLine(line, expected == "-10:PA" ? kShort : kWait);
        EXPECT_EQ(std::to_string(result) + ":" + line, expected);
    }
    ASSERT_TRUE(client.sendText("RT\n"));
    EXPECT_EQ(stream->getLine(line, kWait), 0);
    EXPECT_EQ(line, "PART");
    EXPECT_EQ(stream->sendWithin("OK\n", 3, kWait), 3);
    EXPECT_TRUE(client.readLine(line, kReplyBound) && line == "OK");
    ASSERT_TRUE(client.sendText("tail"));
    client.close();  // close_notify: the unterminated rest is delivered once
    for (const char* expected : {"tail", ""}) {
        EXPECT_EQ(stream->getLine(line, kWait), 0);
        EXPECT_EQ(line, expected);
    }
}

// A bare TCP close may be someone on the path cutting the stream: the line it cut is not delivered.
TEST_F(TlsLoopback, ACloseWithoutCloseNotifyIsAFailure) {
    ASSERT_TRUE(client.sendText("GUI_START(0)"));
    std::string line;
    ASSERT_EQ(stream->getLine(line, kShort), kTimedOut);
    shutdown(client.descriptor(), SHUT_WR);
    EXPECT_EQ(stream->getLine(line, kWait), kIoFailed);
    EXPECT_EQ(line + stream->lastError(), "closed without close_notify");
}

// The client reads nothing until the buffers are full, so the first send runs out of time with a
// record under way; the second goes on from the count while the session waits for a line on
// another thread. Every byte arrives once, in order.
TEST_F(TlsLoopback, ASendThatRanOutOfTimeGoesOnFromItsCountWhileTheSessionReads) {
    std::string block;
    for (int i = 0; block.size() < (16u << 20); ++i)
        block += std::to_string(i) + std::string(1000, '.') + "\n";
    const int total = static_cast<int>(block.size());
    const int first = stream->sendWithin(block.data(), total, kShort);
    ASSERT_TRUE(first > 0 && first < total) << first;
    auto reading = std::async(std::launch::async, [&] {
        std::string line, received;
        while (received.size() < block.size() && client.readLine(line, kReplyBound))
            received += line + "\n";
        return received == block && client.sendLine("done");
    });
    auto session = std::async(std::launch::async, [&] {
        std::string line;
        return stream->getLine(line, kLong) == 0 ? line : "<no line>";
    });
    EXPECT_EQ(stream->sendWithin(block.data() + first, total - first, kLong), total - first);
    EXPECT_TRUE(reading.get()) << "the block did not arrive whole and once";
    EXPECT_EQ(session.get(), "done");
}

}  // namespace
