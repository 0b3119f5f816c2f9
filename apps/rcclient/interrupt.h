// Ctrl-C while START waits: the first SIGINT asks for STOP() to be sent so that the acquisition
// ends and its reply still arrives; the second one ends the client by the default action.
// Outside the scope of a StopOnInterrupt object SIGINT keeps its previous disposition.
// The handler is installed without SA_RESTART so that it also cuts a pending wait short.
#pragma once

#include <signal.h>

namespace rcclient {

class StopOnInterrupt {
public:
    StopOnInterrupt();
    ~StopOnInterrupt();
    StopOnInterrupt(const StopOnInterrupt&) = delete;
    StopOnInterrupt& operator=(const StopOnInterrupt&) = delete;

    // True the first time it is called after a SIGINT; false before one and ever after.
    bool takeStopRequest();

private:
    struct sigaction mPrevious;
    bool mTaken = false;
};

}  // namespace rcclient
