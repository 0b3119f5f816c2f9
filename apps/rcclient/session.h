// One connection's worth of commands, in the clear or over TLS: sends each command (with the sync
// line, see protocol/pairing.h), waits until its replies are complete, and prints every reply line
// on standard output (flushed at once, so scripts see lines as they come). A silent command thus
// costs one round trip.
//
// Waits: a command's replies, the time-out. An accepted START then waits for its final line
// with no limit, or count x time plus the time-out when `boundAcquisition` is set; meanwhile
// elapsed and expected seconds show on standard error when `showProgress` is set, and Ctrl-C
// sends STOP(). Empty lines and comments (see commands.h) are skipped. A final line from an earlier
// client's START is not printed; standard error says that it was dropped. Problems with the
// connection are described on standard error and end the session.
#pragma once

#include <limits>
#include <string>

#include "apps/rcclient/interrupt.h"
#include "apps/rcclient/linereader.h"
#include "net/stream.h"
#include "protocol/pairing.h"

namespace rcclient {

// What the caller does after a command.
// Interrupted: a stop signal came (see interrupt.h) during a START, whose final line has arrived
// since, or, in an interactive session, during the wait for another command's replies, which
// was given up (replies that come later are printed during the next command's wait).
enum class Step { Next, Quit, Broken, Interrupted };

struct SessionSettings {
    double timeout;
    bool boundAcquisition;
    bool showProgress;
};

class Session {
public:
    // `stream` is connected (over TLS: with its handshake made) and outlives the session.
    Session(net::LineStream& stream, std::string peer, SessionSettings settings)
        : mStream(stream), mReader(stream), mPeer(std::move(peer)), mSettings(settings) {}

    Step run(const std::string& line);
    // Ends the session politely; the server closes its side on QUIT().
    void quit();
    bool sawErrorReply() const { return mSawError; }

private:
    static constexpr double kNoDeadline = std::numeric_limits<double>::infinity();

    struct StartWatch {
        bool hasExpected;
        double expected;
        double started;
        StopOnSignal* stopSignal;
    };

    Step runStart(const std::string& command);
    // Reads and routes lines until `done()` holds or `deadline` (net::monotonicSeconds) passes.
    template <typename Done>
    Step readUntil(Done done, double deadline, const std::string& command, StartWatch* watch);
    void handle(const protocol::Routed& routed, StartWatch* watch);
    void watchTick(StartWatch& watch);
    bool sendCommand(const std::string& command, protocol::PairingKind kind, unsigned long& ticket);
    bool send(const std::string& text);
    Step report(LineReader::Result result, const std::string& command);
    void printReply(const std::string& line);

    net::LineStream& mStream;
    LineReader mReader;
    protocol::ReplyPairing mPairing;
    const std::string mPeer;
    const SessionSettings mSettings;
    bool mSawError = false;
    bool mFinalArrived = false;
    bool mAnyLine = false;  // a client queued behind another session gets no line at all
};

}  // namespace rcclient
