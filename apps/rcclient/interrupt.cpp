#include "apps/rcclient/interrupt.h"

#include <unistd.h>

#include <atomic>

namespace rcclient {

namespace {

std::atomic<bool> gStartWaits{false};
std::atomic<int> gInterrupts{0};

// Only async-signal-safe calls here: _exit, and lock-free atomics.
extern "C" void onInterrupt(int) {
    if (!gStartWaits.load() || gInterrupts.fetch_add(1) > 0) _exit(kInterruptedExit);
}

}  // namespace

void exitOnInterrupt() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGINT, &action, nullptr);
}

StopOnInterrupt::StopOnInterrupt() {
    gInterrupts = 0;
    gStartWaits = true;
}

StopOnInterrupt::~StopOnInterrupt() {
    gStartWaits = false;
}

bool StopOnInterrupt::takeStopRequest() {
    if (mTaken || gInterrupts.load() == 0) return false;
    mTaken = true;
    return true;
}

bool StopOnInterrupt::interrupted() const {
    return gInterrupts.load() > 0;
}

}  // namespace rcclient
