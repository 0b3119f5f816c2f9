// Commands from standard input, one per line, when the command line gives none. The leave words
// and the end of input send QUIT(), and "help" prints the command table (see commands.h).
//
// When standard input and error are terminals (the prompt and what is typed show on standard
// error: with it redirected, the user would type blind), the lines come from the prompt
// (prompt.h), and stop signals are held for the
// whole session (interrupt.h): Ctrl-C drops the line being typed, or gives up the wait for a
// command's replies (a START's after its STOP() and final line), and returns to the prompt;
// SIGTERM and SIGHUP end the session the same way. Ctrl-D, Ctrl-C and those signals leave the
// line they came on, so that what follows starts on a line of its own.
#pragma once

#include "apps/rcclient/session.h"

namespace rcclient {

// The step that ended the session; Next after a leave word or the end of input, once QUIT() has
// been sent. Interrupted: a stop signal came that ends the session; pendingStopSignal() tells
// which.
Step runStandardInput(Session& session);

}  // namespace rcclient
