#include "apps/rcclient/session.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "apps/rcclient/commands.h"

namespace rcclient {

namespace {

constexpr double kGraceSeconds = 0.2;
constexpr double kPollSeconds = 0.2;
constexpr double kSendSeconds = 1.0;
constexpr int kTimeoutCode = -10;
constexpr const char* kErrorPrefix = "ERROR: ";
constexpr const char* kStopCommand = "STOP()";
constexpr const char* kQuitCommand = "QUIT()";

void clearProgress() {
    std::fputs("\r\033[K", stderr);
}

}  // namespace

Step Session::run(const std::string& line) {
    std::string command = trimCommand(line);
    ReplyRule rule = replyRule(command);
    if (rule == ReplyRule::Blank) return Step::Next;
    Step pending = printPending();
    if (pending != Step::Next) return pending;
    if (rule == ReplyRule::Start) return runStart(command);
    if (!send(command)) return Step::Broken;
    switch (rule) {
        case ReplyRule::Quit:
            return Step::Quit;
        case ReplyRule::Answer:
            return awaitAnswer(command, mTimeout);
        default:
            return awaitPossibleError();
    }
}

void Session::quit() {
    mSocket.sendLine(kQuitCommand, kSendSeconds);
}

// The Ctrl-C handler goes in before START is sent, so that an interrupt at any moment of the
// acquisition turns into STOP() rather than ending the client.
Step Session::runStart(const std::string& command) {
    double expected = 0.0;
    bool hasExpected = startDuration(command, expected);
    StopOnInterrupt interrupt;
    if (!send(command)) return Step::Broken;
    StartWatch watch{hasExpected, expected, &interrupt};
    double budget = (hasExpected ? expected : 0.0) + mTimeout;
    std::string line;
    Received received = receive(budget, line, &watch);
    if (mShowProgress) clearProgress();
    if (received == Received::Line) {
        printReply(line);
        return Step::Next;
    }
    return report(received, command, budget);
}

Step Session::awaitAnswer(const std::string& command, double seconds) {
    std::string line;
    Received received = receive(seconds, line, nullptr);
    if (received == Received::Line) {
        printReply(line);
        return Step::Next;
    }
    return report(received, command, seconds);
}

Step Session::awaitPossibleError() {
    std::string line;
    Received received = receive(kGraceSeconds, line, nullptr);
    if (received == Received::Line) printReply(line);
    if (received == Received::Line || received == Received::TimedOut) return Step::Next;
    return report(received, "", 0.0);
}

Step Session::printPending() {
    for (;;) {
        std::string line;
        int result = mSocket.getLine(line, 0.0);
        if (result == kTimeoutCode) return Step::Next;
        if (result != 0 || line.empty())
            return report(result == 0 ? Received::Closed : Received::Failed, "", 0.0);
        printReply(line);
    }
}

// A line may already sit in the socket's line buffer, where a readiness wait cannot see it, so
// the buffer is asked first. Waits then go in short slices, for the progress display and so that
// a Ctrl-C (which cuts a wait short with EINTR) is acted on at once.
Session::Received Session::receive(double seconds, std::string& line, StartWatch* watch) {
    int result = mSocket.getLine(line, 0.0);
    if (result != kTimeoutCode)
        return result != 0 ? Received::Failed : line.empty() ? Received::Closed : Received::Line;
    double start = getPrecTime();
    for (;;) {
        double elapsed = getPrecTime() - start;
        if (watch != nullptr) watchTick(*watch, elapsed);
        if (elapsed >= seconds) return Received::TimedOut;
        int ready = mSocket.recvReady(std::min(seconds - elapsed, kPollSeconds));
        if (ready == kTimeoutCode || (ready != 0 && errno == EINTR)) continue;
        if (ready != 0) return Received::Failed;
        result = mSocket.getLine(line, mTimeout);
        if (result == 0) return line.empty() ? Received::Closed : Received::Line;
        if (result != kTimeoutCode && errno != EINTR) return Received::Failed;
    }
}

void Session::watchTick(StartWatch& watch, double elapsed) {
    if (watch.interrupt->takeStopRequest()) {
        if (mShowProgress) clearProgress();
        std::fprintf(stderr, "rcclient: interrupted, sending %s\n", kStopCommand);
        send(kStopCommand);
    }
    if (!mShowProgress) return;
    if (watch.hasExpected)
        std::fprintf(stderr, "\rSTART: %.1f s of %.1f s", elapsed, watch.expected);
    else
        std::fprintf(stderr, "\rSTART: %.1f s", elapsed);
    std::fflush(stderr);
}

bool Session::send(const std::string& line) {
    if (mSocket.sendLine(line, kSendSeconds) > 0) return true;
    std::fprintf(stderr, "rcclient: could not send to %s: %s\n", mPeer.c_str(),
                 std::strerror(errno));
    return false;
}

Step Session::report(Received received, const std::string& command, double seconds) {
    if (received == Received::TimedOut)
        std::fprintf(stderr, "rcclient: no reply to %s from %s within %g s\n", command.c_str(),
                     mPeer.c_str(), seconds);
    else if (received == Received::Closed)
        std::fprintf(stderr, "rcclient: %s closed the connection\n", mPeer.c_str());
    else
        std::fprintf(stderr, "rcclient: connection to %s failed: %s\n", mPeer.c_str(),
                     std::strerror(errno));
    return Step::Broken;
}

void Session::printReply(const std::string& line) {
    if (line.compare(0, std::strlen(kErrorPrefix), kErrorPrefix) == 0) mSawError = true;
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace rcclient
