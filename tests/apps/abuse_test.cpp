// Garbage on the command connection: NUL bytes, bare carriage returns, random bytes, megabyte
// lines, a hundred thousand pipelined commands and a client that sends one byte at a time. Every
// line is answered or ignored as the line framing and the command language say, and znhost's
// memory stays bounded.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/apps/fault_fixture.h"

namespace apps_test {
namespace {

using namespace std::string_literals;

struct GarbageCase {
    const char* name;
    std::string sent;
    std::vector<std::string> replies;
    bool endsSession;  // the garbage makes an empty line, which ends the session without a reply
};

// Rows print as their name in test listings.
void PrintTo(const GarbageCase& row, std::ostream* out) {
    *out << row.name;
}

// A received chunk is read as a zero-terminated text, so a NUL cuts off the rest of its line.
const GarbageCase kGarbageCases[] = {
    {"nul_cuts_off_the_rest_of_the_line", "GUI_ISRUNNING(1)\0tail)\n"s, {"NO"}, false},
    {"nul_first_makes_an_empty_line", "\0GUI_ISRUNNING(0)\n"s, {}, true},
    {"nul_block_makes_an_empty_line", std::string(4096, '\0') + "\n", {}, true},
    {"carriage_returns_alone_do_not_end_lines",
     "FOO()\rFOO()\rFOO()\r\n",
     {"ERROR: UNKNOWN COMMAND"},
     false},
    {"carriage_return_line_feed_ends_lines",
     "GUI_ISRUNNING(0)\r\nFOO()\r\n",
     {"NO", "ERROR: UNKNOWN COMMAND"},
     false},
    {"carriage_returns_only_make_an_empty_line", "\r\r\r\n", {}, true},
    {"blanks_and_carriage_returns_make_an_empty_line", " \r \r\n", {}, true},
    {"high_bytes_in_the_name", "\xff\xfe\x80(1)\n", {"ERROR: UNKNOWN COMMAND"}, false},
    {"control_bytes_as_device_index",
     "GUI_ISRUNNING(\x01\x02\x1b)\n",
     {"ERROR: INVALID DEVICE INDEX"},
     false},
    {"parentheses_only", "((((\n", {"ERROR: UNKNOWN COMMAND"}, false},
    {"text_without_parenthesis_is_ignored", "hello world\n", {}, false},
};

class GarbageTest : public FaultTest, public ::testing::WithParamInterface<GarbageCase> {};

TEST_P(GarbageTest, AnsweredOrIgnoredAsFramed) {
    const GarbageCase& row = GetParam();
    ASSERT_TRUE(startMeasured());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    ASSERT_TRUE(client.sendText(row.sent));
    if (row.endsSession) {
        std::string line;
        EXPECT_FALSE(client.readLine(line, kReplyBound)) << "unexpected reply " << line;
        EXPECT_TRUE(client.waitForClose(kReplyBound));
    } else {
        std::vector<std::string> replies;
        ASSERT_TRUE(readUntilSentinel(client, replies));
        EXPECT_EQ(replies, row.replies);
        EXPECT_TRUE(quitSession(client));
    }
    expectRecoveredAndStops();
}

INSTANTIATE_TEST_SUITE_P(Rows, GarbageTest, ::testing::ValuesIn(kGarbageCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Sends `text` from a second thread while this one reads `count` reply lines, so that neither side
// waits for the other to drain its socket. Should the host stop reading, it is killed, which ends
// the send; every wait stays bounded.
class PipelinedExchange {
public:
    PipelinedExchange(RawClient& client, ChildProcess& host) : mClient(client), mHost(host) {}

    std::vector<std::string> run(const std::string& text, size_t count) {
        std::atomic<bool> sent{false};
        std::thread sender([&] {
            mClient.sendText(text);
            sent = true;
        });
        std::vector<std::string> lines;
        std::string line;
        while (lines.size() < count && mClient.readLine(line, kReplyBound))
            lines.push_back(line);
        auto deadline = std::chrono::steady_clock::now() + kReplyBound;
        while (!sent && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(10));
        if (!sent) mHost.kill();
        sender.join();
        return lines;
    }

private:
    RawClient& mClient;
    ChildProcess& mHost;
};

// Each command's reply, or none; taken together they return the devices to where they started.
struct Scripted {
    const char* command;
    const char* reply;  // nullptr: answers nothing
};

const Scripted kPipelineScript[] = {
    {"GUI_ISRUNNING(0)", "NO"},
    {"GUI_START(1)", nullptr},
    {"GUI_ISRUNNING(1)", "YES"},
    {"GUI_STOP(1)", nullptr},
    {"FOO(1,2)", "ERROR: UNKNOWN COMMAND"},
    {"STOP()", nullptr},
    {"no parenthesis", nullptr},
    {"START(5,1,0,,10)", "ERROR: INVALID DEVICE INDEX"},
    {"GUI_STOP()", "ERROR: INVALID DEVICE INDEX"},
    {"start(0,-1,0,,10)", "ERROR: INVALID ACQ COUNT"},
};
constexpr int kPipelinedCommands = 100000;

void reportPeak(const char* what, int run, long kb) {
    std::printf("[ peak RSS ] %s, run %d: znhost VmHWM %ld kB\n", what, run, kb);
    std::fflush(stdout);
}

// Peak memory may rise while allocator arenas and caches fill on the first run; after that an
// identical run must not raise it by more than this.
constexpr long kPeakSlackKb = 4 * 1024;

// AddressSanitizer parks freed blocks in its quarantine instead of reusing them, so there every
// run raises the peak whatever the code does; leaks are LeakSanitizer's to report when znhost
// exits, which its exit status shows.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPeakGrowthMeansLeak = false;
#else
constexpr bool kPeakGrowthMeansLeak = true;
#endif

void expectPeakSettled(const long (&peaks)[3]) {
    if (kPeakGrowthMeansLeak) {
        EXPECT_LE(peaks[2] - peaks[1], kPeakSlackKb);
    }
}

TEST_F(FaultTest, HundredThousandPipelinedCommandsInOneWrite) {
    ASSERT_TRUE(startMeasured());
    std::string text;
    std::vector<std::string> expected;
    for (int i = 0; i < kPipelinedCommands / static_cast<int>(std::size(kPipelineScript)); ++i) {
        for (const Scripted& step : kPipelineScript) {
            text += std::string(step.command) + "\n";
            if (step.reply != nullptr) expected.push_back(step.reply);
        }
    }
    text += std::string(kSentinel) + "\n";
    expected.push_back(kSentinelReply);

    long peaks[3] = {};
    for (int run = 0; run < 3; ++run) {
        RawClient client;
        ASSERT_TRUE(client.connect(mPort, kReplyBound));
        std::vector<std::string> replies =
            PipelinedExchange(client, mHost).run(text, expected.size());
        ASSERT_EQ(replies.size(), expected.size()) << "run " << run;
        EXPECT_TRUE(replies == expected) << "run " << run << ": replies out of order";
        ASSERT_TRUE(quitSession(client));
        peaks[run] = hostPeakKb();
        reportPeak("100000 pipelined commands", run + 1, peaks[run]);
    }
    expectPeakSettled(peaks);
    expectRecoveredAndStops();
}

TEST_F(FaultTest, MegabyteLinesKeepMemoryBounded) {
    ASSERT_TRUE(startMeasured());
    const std::string megabyte(1 << 20, '0');
    // A line this long may outlast a read time-out, which drops the part received so far; the
    // rest then makes a line without "(" and is ignored. So each line gets its reply or none.
    const std::string text = "A" + megabyte + "\n" + "GUI_ISRUNNING(" + megabyte + ")\n";
    long peaks[3] = {};
    for (int run = 0; run < 3; ++run) {
        RawClient client;
        ASSERT_TRUE(client.connect(mPort, kReplyBound));
        ASSERT_TRUE(client.sendText(text));
        std::vector<std::string> replies;
        ASSERT_TRUE(readUntilSentinel(client, replies)) << "run " << run;
        EXPECT_LE(replies.size(), 1u) << "run " << run;
        for (const std::string& reply : replies)
            EXPECT_EQ(reply, "NO") << "run " << run;
        ASSERT_TRUE(quitSession(client));
        peaks[run] = hostPeakKb();
        reportPeak("1 MB lines", run + 1, peaks[run]);
    }
    expectPeakSettled(peaks);
    expectRecoveredAndStops();
}

// Lines of random printable bytes around a "(" whose name is no command: each gets exactly one
// "ERROR: " reply, however its quotes, commas and parentheses fall.
TEST_F(FaultTest, RandomPrintableLinesEachGetOneError) {
    ASSERT_TRUE(startMeasured());
    std::mt19937 random(20240607);
    std::uniform_int_distribution<int> printable(0x20, 0x7e);
    std::uniform_int_distribution<int> length(0, 60);
    std::string text;
    const int lines = 2000;
    for (int i = 0; i < lines; ++i) {
        std::string name = "x";  // no command name starts with x
        for (int n = length(random) / 4; n > 0; --n)
            name += static_cast<char>(printable(random));
        std::string args;
        for (int n = length(random); n > 0; --n)
            args += static_cast<char>(printable(random));
        text += name.substr(0, name.find('(')) + "(" + args + "\n";
    }
    text += std::string(kSentinel) + "\n";
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    std::vector<std::string> replies = PipelinedExchange(client, mHost).run(text, lines + 1);
    ASSERT_EQ(replies.size(), static_cast<size_t>(lines + 1));
    for (int i = 0; i < lines; ++i)
        EXPECT_EQ(replies[i].compare(0, 7, "ERROR: "), 0) << "line " << i << ": " << replies[i];
    EXPECT_EQ(replies.back(), kSentinelReply);
    EXPECT_TRUE(quitSession(client));
    expectRecoveredAndStops();
}

// Arbitrary bytes, NULs and line feeds among them: the session may end early on a line that comes
// out empty, but every reply is well formed and the host carries on.
TEST_F(FaultTest, RandomBytesGetOnlyWellFormedReplies) {
    ASSERT_TRUE(startMeasured());
    std::mt19937 random(4711);
    std::uniform_int_distribution<int> byte(0, 255);
    std::string text;
    for (int i = 0; i < 64 * 1024; ++i)
        text += static_cast<char>(byte(random));
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    // Both may fail once the session has ended and the server has reset the connection. The end
    // of the stream ends the session otherwise; a line feed sent instead could be swallowed, since
    // a NUL hides the rest of the chunk that it arrives in.
    client.sendText(text);
    client.finishSending();
    std::string line;
    int replies = 0;
    while (client.readLine(line, kReplyBound)) {
        ++replies;
        EXPECT_TRUE(isWellFormedReply(line)) << line;
    }
    EXPECT_TRUE(client.waitForClose(kReplyBound)) << "the session did not end";
    std::printf("[ random   ] %d replies to 64 KiB of random bytes\n", replies);
    expectRecoveredAndStops();
}

// A dozen bytes, one every 100 ms: every byte is its own read, yet each line is whole.
TEST_F(FaultTest, OneBytePerTenthOfASecond) {
    ASSERT_TRUE(startMeasured());
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound));
    for (char byte : std::string("()\n()\n()\n()\n")) {
        ASSERT_TRUE(client.sendText(std::string(1, byte)));
        std::this_thread::sleep_for(milliseconds(100));
    }
    std::vector<std::string> replies;
    ASSERT_TRUE(readUntilSentinel(client, replies));
    EXPECT_EQ(replies, std::vector<std::string>(4, "ERROR: UNKNOWN COMMAND"));
    EXPECT_TRUE(quitSession(client));
    expectRecoveredAndStops();
}

}  // namespace
}  // namespace apps_test
