#include "apps/rcclient/input.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "apps/rcclient/commands.h"
#include "apps/rcclient/interrupt.h"
#include "apps/rcclient/prompt.h"

namespace rcclient {

namespace {

// Carries out one line; false when the session ends with it, `step` telling how.
bool runLine(Session& session, const std::string& line, Step& step) {
    if (isLeaveWord(line)) {
        session.quit();
        step = Step::Next;
        return false;
    }
    if (isHelpWord(line)) {
        std::fputs(commandTable(), stdout);
        return true;
    }
    step = session.run(line);
    return step == Step::Next;
}

Step runLines(Session& session) {
    std::string line;
    Step step = Step::Next;
    while (std::getline(std::cin, line))
        if (!runLine(session, line, step)) return step;
    session.quit();
    return Step::Next;
}

Step runPrompt(Session& session) {
    HoldStopSignals hold;
    Prompt prompt;
    std::string line;
    for (;;) {
        Step step = Step::Next;
        const bool typed = prompt.read(line);
        if (typed && runLine(session, line, step)) continue;
        if (typed && step != Step::Interrupted) return step;
        std::fputc('\n', stderr);
        if (takeInterrupt()) continue;
        if (pendingStopSignal() != 0) return Step::Interrupted;
        session.quit();
        return Step::Next;
    }
}

}  // namespace

Step runStandardInput(Session& session) {
    const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    return terminal ? runPrompt(session) : runLines(session);
}

}  // namespace rcclient
