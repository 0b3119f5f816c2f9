// Pairs received lines with the commands that caused them.
//
// Every command but Quit is followed in the same write by the sync line, whose answer (the sync
// text) closes the command's replies: the lines before it are the command's own, none means it
// succeeded silently. A SelfSync command's own reply is the sync text. Commands wait in a queue,
// so a STOP() sent while START is still unanswered gets its own replies.
//
// "OK" and "ERROR: ACQUISITION FAILED" end a running acquisition whenever they arrive. One that
// arrives while a START is still unanswered is held until the START's fate is known: it is that
// START's final line if the START was accepted (a short acquisition may end before the sync
// reply), and a stray from an earlier client's START if it was refused. A final line with no
// acquisition of this client pending is a stray too: it is reported as such and not printed.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "apps/rcclient/commands.h"

namespace rcclient {

struct Routed {
    enum class Kind {
        Reply,  // a reply to a sent command
        Final,  // the final line of this client's acquisition
        Stray,  // a final line that belongs to an earlier client: dropped
    };
    Kind kind;
    std::string line;
};

class ReplyPairing {
public:
    // Records a command that went out; returns its ticket for answered().
    unsigned long sent(LineKind kind);
    // Routes one received line; appends what it turned out to be (zero to two entries).
    void take(const std::string& line, std::vector<Routed>& routed);
    // True once every reply of the command with this ticket has arrived.
    bool answered(unsigned long ticket) const;
    bool acquisitionPending() const { return mPending > 0; }

private:
    struct Command {
        unsigned long ticket = 0;
        LineKind kind = LineKind::Other;
        bool refused = false;
        bool holding = false;
        std::string heldFinal;
    };

    void takeFinal(const std::string& line, std::vector<Routed>& routed);
    void complete(const std::string& line, std::vector<Routed>& routed);

    std::deque<Command> mQueue;
    unsigned long mNextTicket = 0;
    int mPending = 0;
};

}  // namespace rcclient
