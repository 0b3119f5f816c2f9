// One connection's worth of commands: sends each command, waits as its reply rule says, and
// prints every reply line on standard output (flushed at once, so scripts see lines as they come).
//
// Before each command, lines that arrived unasked (a late error, or the reply to an acquisition
// that an earlier client started) are printed first. START waits count x time plus the time-out,
// showing elapsed and expected seconds on standard error when `showProgress` is set; Ctrl-C then
// sends STOP(). GUI_ISRUNNING waits the time-out; the other commands wait the 0.2 s grace period.
// Problems with the connection are described on standard error and end the session.
#pragma once

#include <string>

#include "apps/rcclient/interrupt.h"
#include "net/sockets.h"

namespace rcclient {

// What the caller does after a command.
enum class Step { Next, Quit, Broken };

class Session {
public:
    Session(TCPSocket& socket, std::string peer, double timeout, bool showProgress)
        : mSocket(socket), mPeer(std::move(peer)), mTimeout(timeout), mShowProgress(showProgress) {}

    Step run(const std::string& line);
    // Ends the session politely; the server closes its side on QUIT().
    void quit();
    bool sawErrorReply() const { return mSawError; }

private:
    enum class Received { Line, TimedOut, Closed, Failed };
    struct StartWatch {
        bool hasExpected;
        double expected;
        StopOnInterrupt* interrupt;
    };

    Step runStart(const std::string& command);
    Step awaitAnswer(const std::string& command, double seconds);
    Step awaitPossibleError();
    Step printPending();
    Received receive(double seconds, std::string& line, StartWatch* watch);
    void watchTick(StartWatch& watch, double elapsed);
    bool send(const std::string& line);
    Step report(Received received, const std::string& command, double seconds);
    void printReply(const std::string& line);

    TCPSocket& mSocket;
    const std::string mPeer;
    const double mTimeout;
    const bool mShowProgress;
    bool mSawError = false;
};

}  // namespace rcclient
