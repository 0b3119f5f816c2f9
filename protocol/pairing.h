// Pairs the lines a client receives with the commands it sent.
//
// Every command but a session end is followed in the same write by the sync line, whose answer
// (the sync text) closes the command's replies: the lines before it are the command's own, none
// means it succeeded silently. A SelfSync command (GUI_SETFILE without two arguments) is sent
// alone: its own reply is the sync text. Commands wait in a queue, so a STOP() sent while START is
// still unanswered gets its own replies, and a command the caller gave up on still gets its own.
//
// "OK" and "ERROR: ACQUISITION FAILED" end a running acquisition whenever they arrive. One that
// arrives while a START is still unanswered is held until the START's fate is known: it is that
// START's final line if the START was accepted (a short acquisition may end before the sync
// reply), and a stray from an earlier client's START if it was refused. A final line with no
// acquisition of this client pending is a stray too. Every final line of this client is Final,
// also when a later START of its own was accepted before an earlier one's final line arrived.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace protocol {

enum class PairingKind {
    SessionEnd,  // the server ends the session: no reply, no sync line
    SelfSync,    // answered by the sync text itself: sent without the sync line
    Start,       // may send a final line after its sync reply
    Other,       // everything else: sent followed by the sync line
};

// How the replies of `line` are paired, read the way the server reads the line.
PairingKind pairingKind(std::string_view line);

// What a command and its sync line look like on the wire (one write, no final line feed).
std::string withSyncLine(std::string_view trimmedCommand, PairingKind kind);

struct Routed {
    enum class Kind {
        Reply,  // a reply to a sent command
        Final,  // the final line of this client's acquisition
        Stray,  // a final line that belongs to an earlier client: to be dropped
    };
    Kind kind;
    std::string line;
};

class ReplyPairing {
public:
    // Records a command that went out; returns its ticket for answered().
    unsigned long sent(PairingKind kind);
    // Routes one received line; appends what it turned out to be (zero to two entries).
    void take(const std::string& line, std::vector<Routed>& routed);
    // True once every reply of the command with this ticket has arrived.
    bool answered(unsigned long ticket) const;
    bool acquisitionPending() const { return mPending > 0; }

private:
    struct SentCommand {
        unsigned long ticket = 0;
        PairingKind kind = PairingKind::Other;
        bool refused = false;
        bool holding = false;
        std::string heldFinal;
    };

    void takeFinal(const std::string& line, std::vector<Routed>& routed);
    void complete(const std::string& line, std::vector<Routed>& routed);

    std::deque<SentCommand> mQueue;
    unsigned long mNextTicket = 0;
    int mPending = 0;
};

}  // namespace protocol
