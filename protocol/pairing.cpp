#include "protocol/pairing.h"

#include "protocol/command_language.h"
#include "protocol/replies.h"

namespace protocol {

PairingKind pairingKind(std::string_view line) {
    const ParsedLine parsed = classifyLine(line);
    if (parsed.kind == LineKind::SessionEnd) return PairingKind::SessionEnd;
    if (parsed.kind != LineKind::Command) return PairingKind::Other;
    // A GUI_SETFILE with the wrong count is answered with the sync text itself.
    const CommandRule& command = findCommand(parsed.name);
    if (command.command == Command::GuiSetFile && !command.acceptsArgumentCount(parsed.args.size()))
        return PairingKind::SelfSync;
    return command.command == Command::Start ? PairingKind::Start : PairingKind::Other;
}

std::string withSyncLine(std::string_view trimmedCommand, PairingKind kind) {
    std::string text(trimmedCommand);
    if (kind == PairingKind::SessionEnd || kind == PairingKind::SelfSync) return text;
    return text + "\n" + kSyncCommand;
}

unsigned long ReplyPairing::sent(PairingKind kind) {
    SentCommand command;
    command.ticket = mNextTicket++;
    command.kind = kind;
    mQueue.push_back(command);
    return command.ticket;
}

bool ReplyPairing::answered(unsigned long ticket) const {
    return mQueue.empty() || ticket < mQueue.front().ticket;
}

void ReplyPairing::take(const std::string& line, std::vector<Routed>& routed) {
    if (isFinalReply(line)) return takeFinal(line, routed);
    if (!mQueue.empty() && line == kSyncReply) return complete(line, routed);
    if (!mQueue.empty() && isErrorReply(line)) mQueue.front().refused = true;
    routed.push_back({Routed::Kind::Reply, line});
}

void ReplyPairing::takeFinal(const std::string& line, std::vector<Routed>& routed) {
    if (mPending > 0) {
        --mPending;
        routed.push_back({Routed::Kind::Final, line});
        return;
    }
    // Only the oldest unanswered command can be the one the server is working on.
    SentCommand* front = mQueue.empty() ? nullptr : &mQueue.front();
    if (front != nullptr && front->kind == PairingKind::Start && !front->holding &&
        !front->refused) {
        front->holding = true;
        front->heldFinal = line;
        return;
    }
    routed.push_back({Routed::Kind::Stray, line});
}

void ReplyPairing::complete(const std::string& line, std::vector<Routed>& routed) {
    const SentCommand command = mQueue.front();
    mQueue.pop_front();
    if (command.kind == PairingKind::SelfSync) routed.push_back({Routed::Kind::Reply, line});
    if (command.kind != PairingKind::Start) return;
    if (command.holding)
        routed.push_back(
            {command.refused ? Routed::Kind::Stray : Routed::Kind::Final, command.heldFinal});
    else if (!command.refused)
        ++mPending;
}

}  // namespace protocol
