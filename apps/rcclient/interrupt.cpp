#include "apps/rcclient/interrupt.h"

#include <unistd.h>

#include <atomic>

namespace rcclient {

namespace {

enum Mode { kExitAtOnce, kRecordFirstExitOnSecond, kRecordEvery };

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> gMode{kExitAtOnce};
std::atomic<int> gPending{0};
std::atomic<int> gSignalsInStartScope{0};

// Only async-signal-safe calls here: _exit, and lock-free atomics.
extern "C" void onStopSignal(int signal) {
    const int mode = gMode.load();
    if (mode == kExitAtOnce) _exit(exitStatusFor(signal));
    if (mode == kRecordFirstExitOnSecond && gSignalsInStartScope.fetch_add(1) > 0)
        _exit(exitStatusFor(signal));
    int none = 0;
    if (!gPending.compare_exchange_strong(none, signal) && signal != SIGINT) gPending = signal;
}

}  // namespace

void installStopSignalHandlers() {
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    for (int signal : kStopSignals)
        sigaction(signal, &action, nullptr);
}

int pendingStopSignal() {
    return gPending.load();
}

bool takeInterrupt() {
    int interrupt = SIGINT;
    return gPending.compare_exchange_strong(interrupt, 0);
}

HoldStopSignals::HoldStopSignals() : mOuterMode(gMode.exchange(kRecordEvery)) {}

HoldStopSignals::~HoldStopSignals() {
    gMode = mOuterMode;
}

StopOnSignal::StopOnSignal() {
    gSignalsInStartScope = 0;
    mOuterMode = gMode.exchange(kRecordFirstExitOnSecond);
}

StopOnSignal::~StopOnSignal() {
    gMode = mOuterMode;
}

bool StopOnSignal::takeStopRequest() {
    if (mTaken || gPending.load() == 0) return false;
    mTaken = true;
    return true;
}

}  // namespace rcclient
