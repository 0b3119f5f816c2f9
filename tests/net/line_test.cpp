// Line framing of getLine over the chunks in which the byte stream arrives.
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "net/sockets.h"
#include "tests/net/loopback.h"

namespace {

using nettest::kShortWait;
using nettest::kWait;

struct Delivery {
    int result;
    std::string line;
};

// The peer writes `sent` in one send (so it is there before the first read), optionally closes,
// and the reader then makes one getLine call per expected delivery.
struct LineCase {
    const char* name;
    std::string sent;
    bool peerCloses;
    std::vector<Delivery> expected;
};

std::string operator""_bytes(const char* text, size_t length) {
    return std::string(text, length);
}

const std::string kLongLine(1000, 'x');
const std::string kChunkMinusOne(509, 'y');
const std::string kFullChunk(510, 'z');

const LineCase kLineCases[] = {
    {"SeveralLinesInOneChunk", "AB\nXY\n", false, {{0, "AB"}, {0, "XY"}}},
    {"CarriageReturnStays", "OK\r\n", false, {{0, "OK\r"}}},
    {"LoneLineFeedIsEmptyLine", "\n", false, {{0, ""}}},
    {"LineSpansSeveralChunks", kLongLine + "\nend\n", false, {{0, kLongLine}, {0, "end"}}},
    {"LineEndIsLastByteOfChunk", kChunkMinusOne + "\nab", true, {{0, kChunkMinusOne}, {0, "ab"}}},
    {"LineEndIsFirstByteOfNextChunk", kFullChunk + "\nk\n", false, {{0, kFullChunk}, {0, "k"}}},
    {"ZeroByteCutsLineAndKeptTail", "A\0B\nZ\0Q"_bytes, true, {{0, "A"}, {0, "Z"}, {0, ""}}},
    {"ZeroByteCutsChunkWithoutLineEnd", "A\0B"_bytes, true, {{0, "A"}}},
    {"TailBeforeCloseIsDelivered", "XY", true, {{0, "XY"}, {0, ""}}},
    {"CloseWithoutTailGivesEmptyLine", "", true, {{0, ""}, {0, ""}}},
};

void PrintTo(const LineCase& row, std::ostream* out) {
    *out << row.name;
}

class GetLineCase : public nettest::LoopbackTest, public ::testing::WithParamInterface<LineCase> {};

TEST_P(GetLineCase, DeliversExpectedLines) {
    const LineCase& row = GetParam();
    if (!row.sent.empty()) {
        const int length = static_cast<int>(row.sent.size());
        ASSERT_EQ(peer->send(row.sent.data(), length, kWait), length);
    }
    if (row.peerCloses) peer.reset();

    for (size_t i = 0; i < row.expected.size(); ++i) {
        SCOPED_TRACE("delivery " + std::to_string(i));
        std::string line = "stale";
        EXPECT_EQ(client.getLine(line, kWait), row.expected[i].result);
        EXPECT_EQ(line, row.expected[i].line);
    }
}

INSTANTIATE_TEST_SUITE_P(Chunks, GetLineCase, ::testing::ValuesIn(kLineCases),
                         [](const auto& info) { return std::string(info.param.name); });

class GetLine : public nettest::LoopbackTest {};

TEST_F(GetLine, BufferedLinesComeFirstAndJoinLaterBytes) {
    ASSERT_EQ(peer->send("AB\nXY\nPQ", 8, kWait), 8);
    std::string line;
    ASSERT_EQ(client.getLine(line, kWait), 0);
    EXPECT_EQ(line, "AB");
    // A negative time-out fails any wait, so success proves the line came from the buffer.
    ASSERT_EQ(client.getLine(line, -1.0), 0);
    EXPECT_EQ(line, "XY");
    // The buffered PQ does not count as readable data.
    EXPECT_EQ(client.recvReady(kShortWait), -10);

    ASSERT_EQ(peer->send("R\n", 2, kWait), 2);
    ASSERT_EQ(client.getLine(line, kWait), 0);
    EXPECT_EQ(line, "PQR");
}

TEST_F(GetLine, TimesOutWithEmptyLineWhenNothingArrives) {
    std::string line = "stale";
    EXPECT_EQ(client.getLine(line, kShortWait), -10);
    EXPECT_EQ(line, "");
}

TEST_F(GetLine, PartialLineAtTimeOutIsHandedOutThenDropped) {
    ASSERT_EQ(peer->send("PART", 4, kWait), 4);
    std::string line;
    EXPECT_EQ(client.getLine(line, kShortWait), -10);
    EXPECT_EQ(line, "PART");

    ASSERT_EQ(peer->send("NEXT\n", 5, kWait), 5);
    EXPECT_EQ(client.getLine(line, kWait), 0);
    EXPECT_EQ(line, "NEXT");
}

}  // namespace
