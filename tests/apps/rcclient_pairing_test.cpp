// rcclient's reply pairing, fed line by line: every order in which replies, sync replies and an
// acquisition's final line can arrive.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/rcclient/pairing.h"

namespace {

using rcclient::LineKind;
using rcclient::Routed;

constexpr const char* kSync = rcclient::kSyncReply;
constexpr const char* kFailed = "ERROR: ACQUISITION FAILED";

// A step sends a command of `kind` when `line` is null, otherwise receives `line`.
struct Step {
    LineKind kind;
    const char* line;
};

Step send(LineKind kind) {
    return {kind, nullptr};
}
Step recv(const char* line) {
    return {LineKind::Other, line};
}

struct PairingCase {
    const char* name;
    std::vector<Step> steps;
    // What the received lines turned out to be, as "reply:LINE", "final:LINE" or "stray:LINE".
    std::vector<std::string> routed;
    bool pending;
};

void PrintTo(const PairingCase& row, std::ostream* out) {
    *out << row.name;
}

std::string describe(const Routed& routed) {
    const char* kind = routed.kind == Routed::Kind::Reply   ? "reply:"
                       : routed.kind == Routed::Kind::Final ? "final:"
                                                            : "stray:";
    return kind + routed.line;
}

class RcclientPairingTest : public ::testing::TestWithParam<PairingCase> {};

TEST_P(RcclientPairingTest, RoutesEveryLine) {
    rcclient::ReplyPairing pairing;
    std::vector<unsigned long> tickets;
    std::vector<Routed> routed;
    for (const Step& step : GetParam().steps) {
        if (step.line == nullptr)
            tickets.push_back(pairing.sent(step.kind));
        else
            pairing.take(step.line, routed);
    }
    std::vector<std::string> described;
    for (const Routed& entry : routed)
        described.push_back(describe(entry));
    EXPECT_EQ(described, GetParam().routed);
    EXPECT_EQ(pairing.acquisitionPending(), GetParam().pending);
    for (unsigned long ticket : tickets)
        EXPECT_TRUE(pairing.answered(ticket)) << ticket;
}

const PairingCase kPairingCases[] = {
    {"silent", {send(LineKind::Other), recv(kSync)}, {}, false},
    {"error_reply",
     {send(LineKind::Other), recv("ERROR: INVALID DEVICE INDEX"), recv(kSync)},
     {"reply:ERROR: INVALID DEVICE INDEX"},
     false},
    {"self_sync_reply_is_its_own",
     {send(LineKind::SelfSync), recv(kSync)},
     {std::string("reply:") + kSync},
     false},
    {"start_accepted", {send(LineKind::Start), recv(kSync)}, {}, true},
    {"start_final_after_sync",
     {send(LineKind::Start), recv(kSync), recv("OK")},
     {"final:OK"},
     false},
    {"start_final_before_sync",
     {send(LineKind::Start), recv("OK"), recv(kSync)},
     {"final:OK"},
     false},
    {"start_failed_before_sync",
     {send(LineKind::Start), recv(kFailed), recv(kSync)},
     {std::string("final:") + kFailed},
     false},
    {"start_refused",
     {send(LineKind::Start), recv("ERROR: INVALID THL"), recv(kSync)},
     {"reply:ERROR: INVALID THL"},
     false},
    {"stray_held_then_start_refused",
     {send(LineKind::Start), recv("OK"), recv("ERROR: ACQ ALREADY RUNNING"), recv(kSync)},
     {"reply:ERROR: ACQ ALREADY RUNNING", "stray:OK"},
     false},
    {"stray_after_start_refused",
     {send(LineKind::Start), recv("ERROR: ACQ ALREADY RUNNING"), recv("OK"), recv(kSync)},
     {"reply:ERROR: ACQ ALREADY RUNNING", "stray:OK"},
     false},
    {"stray_during_silent_command",
     {send(LineKind::Other), recv(kFailed), recv(kSync)},
     {std::string("stray:") + kFailed},
     false},
    {"stray_with_nothing_sent", {recv("OK")}, {"stray:OK"}, false},
    {"final_between_reply_and_sync",
     {send(LineKind::Start), recv(kSync), send(LineKind::Other), recv("YES"), recv("OK"),
      recv(kSync)},
     {"reply:YES", "final:OK"},
     false},
    {"stop_sent_before_start_is_answered",
     {send(LineKind::Start), send(LineKind::Other), recv(kSync), recv(kSync), recv(kFailed)},
     {std::string("final:") + kFailed},
     false},
    {"queued_commands_in_order",
     {send(LineKind::Other), send(LineKind::Other), recv("ERROR: X"), recv(kSync), recv("NO"),
      recv(kSync)},
     {"reply:ERROR: X", "reply:NO"},
     false},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientPairingTest, ::testing::ValuesIn(kPairingCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RcclientPairing, CommandIsAnsweredOnlyAtItsSyncReply) {
    rcclient::ReplyPairing pairing;
    std::vector<Routed> routed;
    unsigned long first = pairing.sent(LineKind::Other);
    unsigned long second = pairing.sent(LineKind::Other);
    pairing.take("NO", routed);
    EXPECT_FALSE(pairing.answered(first));
    pairing.take(kSync, routed);
    EXPECT_TRUE(pairing.answered(first));
    EXPECT_FALSE(pairing.answered(second));
}

}  // namespace
