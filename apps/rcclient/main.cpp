// rcclient: sends remote-control commands to the plug-in's server and prints the replies.
//
// Exit status: 0 when no reply began with "ERROR: ", 1 when one did or the connection broke
// during the session, 2 when the server could not be reached or the command line is wrong.
// An empty command (or input line) is skipped rather than sent: the server would take it as the
// end of the session. --version prints "rcclient VERSION", the project's version. Without commands,
// a prompt is shown on standard error when standard input is a terminal; the end of input sends
// QUIT().
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "apps/rcclient/options.h"
#include "apps/rcclient/session.h"
#include "net/sockets.h"

using namespace rcclient;

namespace {

constexpr int kErrorExit = 1;
constexpr int kNoServerExit = 2;

bool runCommands(Session& session, const std::vector<std::string>& commands) {
    for (const std::string& command : commands) {
        Step step = session.run(command);
        if (step == Step::Quit) return true;
        if (step == Step::Broken) return false;
    }
    session.quit();
    return true;
}

bool runInteractive(Session& session) {
    bool prompt = isatty(STDIN_FILENO) != 0;
    std::string line;
    for (;;) {
        if (prompt) std::fputs("rcclient> ", stderr);
        if (!std::getline(std::cin, line)) break;
        Step step = session.run(line);
        if (step == Step::Quit) return true;
        if (step == Step::Broken) return false;
    }
    session.quit();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    ClientOptions options;
    std::string error;
    if (!parseClientOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "rcclient: %s\n\n%s", error.c_str(), clientUsageText());
        return kNoServerExit;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? clientUsageText() : "rcclient " REMOTECTRL_VERSION "\n", stdout);
        return 0;
    }
    std::string peer = options.host + ":" + std::to_string(options.port);
    TCPSocket socket;
    int connected = socket.connect(options.host, options.port, options.timeout);
    if (connected != 0) {
        if (connected == net::kTimedOut)
            std::fprintf(stderr, "rcclient: cannot connect to %s: no answer within %g s\n",
                         peer.c_str(), options.timeout);
        else
            std::fprintf(stderr, "rcclient: cannot connect to %s: %s\n", peer.c_str(),
                         std::strerror(errno));
        return kNoServerExit;
    }
    Session session(socket, peer,
                    {options.timeout, options.timeoutGiven, isatty(STDERR_FILENO) != 0});
    bool intact =
        options.commands.empty() ? runInteractive(session) : runCommands(session, options.commands);
    return intact && !session.sawErrorReply() ? 0 : kErrorExit;
}
