// Ctrl-C: rcclient exits with status 130 (128 + SIGINT, as a shell reports a command it ended),
// except while a START waits for its final line. There the first SIGINT asks for STOP() to be
// sent so that the acquisition ends and its final line still arrives, after which the client
// leaves with 130; a second one exits at once.
// The handler is installed without SA_RESTART so that it also cuts a pending wait short.
#pragma once

#include <signal.h>

namespace rcclient {

constexpr int kInterruptedExit = 128 + SIGINT;

// Installs the handler for the rest of the process.
void exitOnInterrupt();

// The scope of a START's wait.
class StopOnInterrupt {
public:
    StopOnInterrupt();
    ~StopOnInterrupt();
    StopOnInterrupt(const StopOnInterrupt&) = delete;
    StopOnInterrupt& operator=(const StopOnInterrupt&) = delete;

    // True the first time it is called after a SIGINT; false before one and ever after.
    bool takeStopRequest();
    // True once a SIGINT has come during this scope.
    bool interrupted() const;

private:
    bool mTaken = false;
};

}  // namespace rcclient
