#include "apps/rcclient/interrupt.h"

#include <atomic>

namespace rcclient {

namespace {

std::atomic<int> gInterrupts{0};

extern "C" void onInterrupt(int) {
    if (gInterrupts.fetch_add(1) > 0) {
        signal(SIGINT, SIG_DFL);
        raise(SIGINT);
    }
}

}  // namespace

StopOnInterrupt::StopOnInterrupt() {
    gInterrupts = 0;
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGINT, &action, &mPrevious);
}

StopOnInterrupt::~StopOnInterrupt() {
    sigaction(SIGINT, &mPrevious, nullptr);
}

bool StopOnInterrupt::takeStopRequest() {
    if (mTaken || gInterrupts.load() == 0) return false;
    mTaken = true;
    return true;
}

}  // namespace rcclient
