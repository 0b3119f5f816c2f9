#include "apps/rcclient/session.h"

#include "apps/rcclient/commands.h"
#include "net/results.h"
#include "protocol/command_language.h"
#include "protocol/replies.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace rcclient {

namespace {

constexpr double kPollSeconds = 0.2;
constexpr double kSendSeconds = 1.0;

void clearProgress() {
    std::fputs("\r\033[K", stderr);
}

}  // namespace

Step Session::run(const std::string& line) {
    const std::string command(protocol::trimLineEnd(line));
    // An empty line is skipped rather than sent: the server would take it as the end. A comment
    // is the user's note.
    if (command.empty() || isComment(command)) return Step::Next;
    const protocol::PairingKind kind = protocol::pairingKind(command);
    if (kind == protocol::PairingKind::SessionEnd) return send(command) ? Step::Quit : Step::Broken;
    if (kind == protocol::PairingKind::Start) return runStart(command);
    unsigned long ticket = 0;
    if (!sendCommand(command, kind, ticket)) return Step::Broken;
    return readUntil([&] { return mPairing.answered(ticket); },
                     net::monotonicSeconds() + mSettings.timeout, command, nullptr);
}

void Session::quit() {
    send(protocol::kQuitCommand);
}

// The stop signals' scope begins before START is sent, so that a signal at any moment of the
// acquisition turns into STOP() rather than ending the client.
Step Session::runStart(const std::string& command) {
    StartWatch watch{false, 0.0, 0.0, nullptr};
    watch.hasExpected = startDuration(command, watch.expected);
    StopOnSignal stopSignal;
    watch.stopSignal = &stopSignal;
    unsigned long ticket = 0;
    if (!sendCommand(command, protocol::PairingKind::Start, ticket)) return Step::Broken;
    watch.started = net::monotonicSeconds();
    mFinalArrived = false;
    Step step = readUntil([&] { return mPairing.answered(ticket); },
                          watch.started + mSettings.timeout, command, &watch);
    if (step == Step::Next && mPairing.acquisitionPending()) {
        double budget = (watch.hasExpected ? watch.expected : 0.0) + mSettings.timeout;
        double deadline = mSettings.boundAcquisition ? watch.started + budget : kNoDeadline;
        step = readUntil([&] { return mFinalArrived; }, deadline, command, &watch);
    }
    if (mSettings.showProgress) clearProgress();
    return step == Step::Next && pendingStopSignal() != 0 ? Step::Interrupted : step;
}

// Waits go in short slices, for the progress display and so that a stop signal (which cuts a
// wait short with EINTR) is acted on at once. Outside a START a signal is still pending here only
// in an interactive session (elsewhere it has ended the process): the user gives up the wait.
template <typename Done>
Step Session::readUntil(Done done, double deadline, const std::string& command, StartWatch* watch) {
    std::vector<protocol::Routed> routed;
    while (!done()) {
        if (watch != nullptr)
            watchTick(*watch);
        else if (pendingStopSignal() != 0)
            return Step::Interrupted;
        double now = net::monotonicSeconds();
        if (now >= deadline) return report(LineReader::Result::None, command);
        std::string line;
        LineReader::Result result = mReader.next(line, std::min(deadline - now, kPollSeconds));
        if (result == LineReader::Result::None) continue;
        if (result != LineReader::Result::Line) return report(result, command);
        mAnyLine = true;
        routed.clear();
        mPairing.take(line, routed);
        for (const protocol::Routed& entry : routed)
            handle(entry, watch);
    }
    return Step::Next;
}

void Session::handle(const protocol::Routed& routed, StartWatch* watch) {
    if (watch != nullptr && mSettings.showProgress) clearProgress();
    if (routed.kind == protocol::Routed::Kind::Stray) {
        std::fprintf(stderr,
                     "rcclient: dropped \"%s\": no acquisition of this client was pending, so it "
                     "ends an earlier client's START\n",
                     routed.line.c_str());
        return;
    }
    if (routed.kind == protocol::Routed::Kind::Final) mFinalArrived = true;
    printReply(routed.line);
}

void Session::watchTick(StartWatch& watch) {
    if (watch.stopSignal->takeStopRequest()) {
        if (mSettings.showProgress) clearProgress();
        std::fprintf(stderr, "rcclient: interrupted, sending %s\n", protocol::kStopCommand);
        unsigned long ticket = 0;
        sendCommand(protocol::kStopCommand, protocol::PairingKind::Other, ticket);
    }
    if (!mSettings.showProgress) return;
    double elapsed = net::monotonicSeconds() - watch.started;
    if (watch.hasExpected)
        std::fprintf(stderr, "\rSTART: %.1f s of %.1f s", elapsed, watch.expected);
    else
        std::fprintf(stderr, "\rSTART: %.1f s", elapsed);
    std::fflush(stderr);
}

// The command and its sync line go out in one write, so the server never waits for the sync.
bool Session::sendCommand(const std::string& command, protocol::PairingKind kind,
                          unsigned long& ticket) {
    if (!send(protocol::withSyncLine(command, kind))) return false;
    ticket = mPairing.sent(kind);
    return true;
}

bool Session::send(const std::string& text) {
    const std::string line = text + "\n";
    const int length = static_cast<int>(line.size());
    const int sent = mStream.sendWithin(line.data(), length, kSendSeconds);
    if (sent == length) return true;
    std::string reason = sent < 0 ? mStream.lastSendError() : "the server stopped taking data";
    // A server that refused us may have said why before it closed (over TLS, an alert about the
    // client certificate): a failing read of what is left tells more than the reset did.
    std::string unread;
    if (mReader.next(unread, 0.0) == LineReader::Result::Failed) reason = mStream.lastError();
    std::fprintf(stderr, "rcclient: could not send to %s: %s\n", mPeer.c_str(), reason.c_str());
    return false;
}

Step Session::report(LineReader::Result result, const std::string& command) {
    if (mSettings.showProgress) clearProgress();
    if (result == LineReader::Result::None && !mAnyLine)
        std::fprintf(stderr,
                     "rcclient: no reply: the server serves one client at a time and may be busy "
                     "with another (%s, waiting for the reply to %s)\n",
                     mPeer.c_str(), command.c_str());
    else if (result == LineReader::Result::None)
        std::fprintf(stderr, "rcclient: no reply to %s from %s within the time-out\n",
                     command.c_str(), mPeer.c_str());
    else if (result == LineReader::Result::Closed)
        std::fprintf(stderr, "rcclient: %s closed the connection\n", mPeer.c_str());
    else
        std::fprintf(stderr, "rcclient: connection to %s failed: %s\n", mPeer.c_str(),
                     mStream.lastError().c_str());
    return Step::Broken;
}

void Session::printReply(const std::string& line) {
    if (protocol::isErrorReply(line)) mSawError = true;
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace rcclient
