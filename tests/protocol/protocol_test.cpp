// The command language and the reply pairing against the case files that the Python package's
// tests read too; every failure names the case file's line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/command_language.h"
#include "protocol/pairing.h"
#include "protocol/replies.h"
#include "tests/protocol/case_files.h"

namespace {

using protocol::LineKind;
using Texts = std::vector<std::string>;

std::string where(const std::string& file, int line) {
    return "tests/protocol/cases/" + file + ":" + std::to_string(line);
}

TEST(Tokenizer, MatchesEveryCase) {
    for (const protocol_test::Row& row : protocol_test::readRows("tokenizer.cases")) {
        SCOPED_TRACE(where("tokenizer.cases", row.lineNumber));
        const auto tokens = protocol::tokenizeQuotedString(row.items.at(0).texts.at(0), ",");
        const protocol_test::Item& expected = row.items.at(1);
        if (expected.word == "failure") {
            EXPECT_FALSE(tokens.has_value());
            continue;
        }
        ASSERT_TRUE(tokens.has_value());
        EXPECT_EQ(*tokens, expected.word == "none" ? Texts{} : expected.texts);
    }
}

TEST(CommandLine, MatchesEveryCase) {
    // In the order of protocol::LineKind and protocol::Command.
    const std::vector<std::string> kinds = {"session-end", "ignored", "syntax-error", "command"};
    const std::vector<std::string> commands = {
        "START", "STOP", "GUI_START", "GUI_SETFILE", "GUI_ISRUNNING", "GUI_STOP", "unknown"};
    for (const protocol_test::Row& row : protocol_test::readRows("lines.cases")) {
        SCOPED_TRACE(where("lines.cases", row.lineNumber));
        const protocol::ParsedLine parsed = protocol::classifyLine(row.items.at(0).texts.at(0));
        ASSERT_EQ(kinds.at(static_cast<size_t>(parsed.kind)), row.items.at(1).word);
        if (parsed.kind != LineKind::Command) continue;
        EXPECT_EQ(parsed.name, row.items.at(2).texts.at(0));
        EXPECT_EQ(commands.at(static_cast<size_t>(protocol::matchCommand(parsed.name))),
                  row.items.at(3).word);
        EXPECT_EQ(parsed.args, row.items.at(4).texts);
    }
}

std::string describe(const protocol::Routed& routed) {
    using Kind = protocol::Routed::Kind;
    const char* kind = routed.kind == Kind::Reply   ? "reply:"
                       : routed.kind == Kind::Final ? "final:"
                                                    : "stray:";
    return kind + routed.line;
}

TEST(ReplyPairing, MatchesEveryCase) {
    for (const protocol_test::PairingRow& row : protocol_test::readPairingRows("pairing.cases")) {
        SCOPED_TRACE(where("pairing.cases", row.lineNumber) + " " + row.name);
        protocol::ReplyPairing pairing;
        std::vector<unsigned long> tickets;
        std::vector<protocol::Routed> routed;
        for (const std::string& event : row.events) {
            const std::string line = event.substr(1);
            if (event[0] == '>')
                tickets.push_back(pairing.sent(protocol::pairingKind(line)));
            else
                pairing.take(line, routed);
        }
        Texts described;
        for (const protocol::Routed& entry : routed)
            described.push_back(describe(entry));
        EXPECT_EQ(described, row.routed);
        EXPECT_EQ(pairing.acquisitionPending(), row.pending);
        for (unsigned long ticket : tickets)
            EXPECT_TRUE(pairing.answered(ticket)) << "ticket " << ticket;
    }
}

TEST(ReplyPairing, ACommandIsAnsweredOnlyAtItsOwnSyncReply) {
    protocol::ReplyPairing pairing;
    std::vector<protocol::Routed> routed;
    const unsigned long first = pairing.sent(protocol::PairingKind::Other);
    const unsigned long second = pairing.sent(protocol::PairingKind::Other);
    pairing.take("NO", routed);
    EXPECT_FALSE(pairing.answered(first));
    pairing.take(protocol::kSyncReply, routed);
    EXPECT_TRUE(pairing.answered(first));
    EXPECT_FALSE(pairing.answered(second));
}

TEST(ReplyPairing, TheSyncLineGoesInTheSameWriteUnlessTheCommandSyncsItself) {
    using protocol::PairingKind;
    EXPECT_EQ(protocol::withSyncLine("STOP()", PairingKind::Other), "STOP()\nGUI_SETFILE()");
    EXPECT_EQ(protocol::withSyncLine("GUI_SETFILE(1)", PairingKind::SelfSync), "GUI_SETFILE(1)");
    EXPECT_EQ(protocol::withSyncLine("QUIT()", PairingKind::SessionEnd), "QUIT()");
}

}  // namespace
