#include "apps/rcclient/pairing.h"

namespace rcclient {

namespace {

bool isError(const std::string& line) {
    return line.compare(0, 7, "ERROR: ") == 0;
}

}  // namespace

unsigned long ReplyPairing::sent(LineKind kind) {
    Command command;
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
    if (!mQueue.empty() && isError(line)) mQueue.front().refused = true;
    routed.push_back({Routed::Kind::Reply, line});
}

void ReplyPairing::takeFinal(const std::string& line, std::vector<Routed>& routed) {
    if (mPending > 0) {
        --mPending;
        routed.push_back({Routed::Kind::Final, line});
        return;
    }
    // Only the oldest unanswered command can be the one the server is working on.
    Command* front = mQueue.empty() ? nullptr : &mQueue.front();
    if (front != nullptr && front->kind == LineKind::Start && !front->holding && !front->refused) {
        front->holding = true;
        front->heldFinal = line;
        return;
    }
    routed.push_back({Routed::Kind::Stray, line});
}

void ReplyPairing::complete(const std::string& line, std::vector<Routed>& routed) {
    Command command = mQueue.front();
    mQueue.pop_front();
    if (command.kind == LineKind::SelfSync) routed.push_back({Routed::Kind::Reply, line});
    if (command.kind != LineKind::Start) return;
    if (command.holding)
        routed.push_back(
            {command.refused ? Routed::Kind::Stray : Routed::Kind::Final, command.heldFinal});
    else if (!command.refused)
        ++mPending;
}

}  // namespace rcclient
