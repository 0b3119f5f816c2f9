// Stop signals: SIGINT (Ctrl-C), SIGTERM and SIGHUP. Each ends rcclient at once with status
// 128 + the signal's number, as a shell reports a command that a signal ended (130 for Ctrl-C),
// except inside the two scopes below, where the handler only records the signal for the caller
// to act on:
// - StopOnSignal, while a START waits for its final line: the first stop signal asks for STOP()
//   to be sent, so that the acquisition ends and its final line still arrives before the caller
//   acts on the signal; a second one ends rcclient at once.
// - HoldStopSignals, for the whole of an interactive session: every stop signal is recorded, so
//   that the prompt gives the terminal back as it found it and Ctrl-C can return to the prompt.
// The handler is installed without SA_RESTART so that it also cuts a pending wait short.
#pragma once

#include <signal.h>

namespace rcclient {

constexpr int exitStatusFor(int signal) {
    return 128 + signal;
}

// Installs the handler of the three stop signals for the rest of the process.
void installStopSignalHandlers();

// The stop signal recorded since the last take, or 0. A SIGTERM or SIGHUP replaces a recorded
// SIGINT, since it asks for more: to leave rather than to abandon one command.
int pendingStopSignal();
// Forgets a recorded SIGINT; false when none is recorded, or another signal.
bool takeInterrupt();

class HoldStopSignals {
public:
    HoldStopSignals();
    ~HoldStopSignals();
    HoldStopSignals(const HoldStopSignals&) = delete;
    HoldStopSignals& operator=(const HoldStopSignals&) = delete;

private:
    int mOuterMode;
};

// The scope of a START's wait.
class StopOnSignal {
public:
    StopOnSignal();
    ~StopOnSignal();
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;

    // True the first time it is called after a stop signal; false before one and ever after.
    bool takeStopRequest();

private:
    int mOuterMode;
    bool mTaken = false;
};

}  // namespace rcclient
