// The interactive prompt on a terminal: line editing and history through libedit's readline
// interface. The history lives in memory for the session only; nothing is written to the user's
// home. libedit's own signal handling is off (it passes each signal on to the whole process
// group); a stop signal (see interrupt.h) instead ends the read with the terminal restored, and
// the caller acts on it.
#pragma once

#include <string>

namespace rcclient {

class Prompt {
public:
    // The prompt text and the edited line go to standard error, so that standard output holds
    // only replies.
    Prompt();
    ~Prompt();
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    // True with the next line, which goes into the history unless it is blank. False at the end
    // of input (Ctrl-D on an empty line) or when a stop signal came; the line typed so far is then
    // dropped, and pendingStopSignal() tells the two apart.
    bool read(std::string& line);
};

}  // namespace rcclient
