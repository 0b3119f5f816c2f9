// rcclient: sends remote-control commands to the plug-in's server, in the clear or over TLS (see
// tls.h), and prints the replies.
//
// Exit status: 0 when no reply began with "ERROR: ", 1 when one did or the connection broke
// during the session, 2 when the server could not be reached or the command line is wrong (a
// usage error is one line pointing to --help), 128 + the signal's number after a stop signal that
// ended it (see interrupt.h). An empty command or a comment (see commands.h) is skipped rather
// than sent: the server would take an empty line as the end of the session. --version prints
// "rcclient VERSION", the project's version. Without commands, standard input gives them (see
// input.h).
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "apps/rcclient/connect.h"
#include "apps/rcclient/input.h"
#include "apps/rcclient/interrupt.h"
#include "apps/rcclient/options.h"
#include "apps/rcclient/session.h"
#include "apps/rcclient/tls.h"

using namespace rcclient;

namespace {

constexpr int kErrorExit = 1;
constexpr int kNoServerExit = 2;

// The step that ended the commands; Next when they ran out, after which QUIT() has been sent.
Step runCommands(Session& session, const std::vector<std::string>& commands) {
    for (const std::string& command : commands) {
        Step step = session.run(command);
        if (step != Step::Next) return step;
    }
    session.quit();
    return Step::Next;
}

// The connection, with its TLS handshake made when `tls` is given; null with `error`.
std::unique_ptr<net::LineStream> connect(const ClientOptions& options, const net::TlsContext* tls,
                                         std::string& error) {
    auto socket = std::make_unique<TCPSocket>();
    if (!connectToServer(*socket, options.host, options.port, options.timeout, error))
        return nullptr;
    if (tls != nullptr) return startTls(*tls, std::move(socket), options, error);
    return std::make_unique<net::PlainStream>(std::move(socket));
}

}  // namespace

int main(int argc, char** argv) {
    ClientOptions options;
    std::string error;
    if (!parseClientOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "rcclient: %s (see rcclient --help)\n", error.c_str());
        return kNoServerExit;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? clientUsageText() : "rcclient " REMOTECTRL_VERSION "\n", stdout);
        return 0;
    }
    installStopSignalHandlers();
    const std::unique_ptr<net::TlsContext> tls = options.tls ? loadTls(options, error) : nullptr;
    const std::unique_ptr<net::LineStream> stream =
        !options.tls || tls ? connect(options, tls.get(), error) : nullptr;
    if (!stream) {
        std::fprintf(stderr, "rcclient: %s\n", error.c_str());
        return kNoServerExit;
    }
    Session session(*stream, options.host + ":" + std::to_string(options.port),
                    {options.timeout, options.timeoutGiven, isatty(STDERR_FILENO) != 0});
    Step end = options.commands.empty() ? runStandardInput(session)
                                        : runCommands(session, options.commands);
    if (end == Step::Interrupted) {
        session.quit();
        return exitStatusFor(pendingStopSignal());
    }
    return end != Step::Broken && !session.sawErrorReply() ? 0 : kErrorExit;
}
