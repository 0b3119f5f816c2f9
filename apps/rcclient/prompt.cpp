#include "apps/rcclient/prompt.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
// libedit's header needs FILE declared first.
#include <editline/readline.h>

#include "apps/rcclient/interrupt.h"

namespace rcclient {

namespace {

constexpr char kPromptText[] = "rcclient> ";

// libedit reads keys through this, so that a stop signal ends the read. The stop signals stay
// blocked except inside ppoll, which unblocks them atomically: one that comes just before the
// wait still ends it, rather than waiting for the next key.
int readKey(FILE* input) {
    sigset_t stopSignals, outer;
    sigemptyset(&stopSignals);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&stopSignals, signal);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &outer);
    unsigned char key = 0;
    int result = EOF;
    pollfd waited = {fileno(input), POLLIN, 0};
    while (pendingStopSignal() == 0) {
        if (::ppoll(&waited, 1, nullptr, &outer) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        // A signal that came with a key is handled before ppoll returns: the key stays unread.
        if (pendingStopSignal() == 0 && ::read(waited.fd, &key, 1) == 1) result = key;
        break;
    }
    pthread_sigmask(SIG_SETMASK, &outer, nullptr);
    return result;
}

}  // namespace

Prompt::Prompt() {
    rl_readline_name = "rcclient";
    rl_catch_signals = 0;
    rl_outstream = stderr;
    rl_getc_function = readKey;
    rl_initialize();
    using_history();
}

Prompt::~Prompt() {
    clear_history();
}

bool Prompt::read(std::string& line) {
    char* typed = readline(kPromptText);
    if (typed == nullptr) return false;
    line = typed;
    std::free(typed);
    if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
    return true;
}

}  // namespace rcclient
