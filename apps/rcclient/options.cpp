#include "apps/rcclient/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <map>
#include <set>

#include "protocol/command_language.h"
#include "protocol/port.h"

namespace rcclient {

namespace {

bool parseTimeout(const std::string& text, double& seconds) {
    errno = 0;
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || errno != 0 || *end != '\0' || !std::isfinite(value) || value <= 0)
        return false;
    seconds = value;
    return true;
}

// The TLS options' names and where each keeps its file.
std::string* tlsFile(const std::string& name, ClientOptions& options) {
    if (name == "--ca") return &options.caFile;
    if (name == "--cert") return &options.certificateFile;
    if (name == "--key") return &options.keyFile;
    return nullptr;
}

bool takesValue(const std::string& name) {
    static const std::set<std::string> kValueOptions = {"--host", "--port", "--timeout",
                                                        "--ca",   "--cert", "--key"};
    return kValueOptions.count(name) != 0;
}

bool applyOption(const std::string& name, const std::string& value, ClientOptions& options,
                 std::string& error) {
    if (std::string* file = tlsFile(name, options)) {
        if (value.empty()) error = name + " needs a file";
        *file = value;
        options.tls = true;
    } else if (name == "--host") {
        if (value.empty()) error = "--host needs a host name or address";
        options.host = value;
    } else if (name == "--port") {
        if (!protocol::parsePort(value, options.port))
            error = "--port needs a number from 1 to 65535";
    } else if (parseTimeout(value, options.timeout)) {
        options.timeoutGiven = true;
    } else {
        error = "--timeout needs a positive number of seconds";
    }
    return error.empty();
}

bool checkTls(const ClientOptions& options, std::string& error) {
    const bool complete =
        !options.caFile.empty() && !options.certificateFile.empty() && !options.keyFile.empty();
    if (!options.tls || complete) return true;
    error = "TLS needs all of --ca, --cert and --key";
    return false;
}

// The server ends the session at QUIT(), so a command after it would silently never be sent.
bool addCommand(const std::string& command, ClientOptions& options, std::string& error) {
    if (command.find_first_of("\r\n") != std::string::npos) {
        error = "a command must not hold a line break";
        return false;
    }
    for (const std::string& earlier : options.commands) {
        if (!earlier.empty() && protocol::endsSession(protocol::trimLineEnd(earlier))) {
            error = "commands after " + earlier + " would never be sent: " + command;
            return false;
        }
    }
    options.commands.push_back(command);
    return true;
}

// The option's long name, and whether its value is in the same argument: after "=" in the long
// form, right after the letter in the short one ("-p5000").
bool splitOption(const std::string& argument, std::string& name, std::string& value) {
    static const std::map<char, std::string> kLongNames = {
        {'H', "--host"}, {'p', "--port"}, {'t', "--timeout"}};
    const auto shortName = kLongNames.find(argument.size() > 1 ? argument[1] : '-');
    if (argument.compare(0, 2, "--") != 0 && shortName != kLongNames.end()) {
        name = shortName->second;
        value = argument.substr(2);
        return !value.empty();
    }
    const size_t equals = argument.find('=');
    name = argument.substr(0, equals);
    if (equals != std::string::npos) value = argument.substr(equals + 1);
    return equals != std::string::npos;
}

}  // namespace

bool parseClientOptions(int argc, const char* const* argv, ClientOptions& options,
                        std::string& error) {
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (optionsEnded || argument.compare(0, 1, "-") != 0 || argument == "-") {
            if (!addCommand(argument, options, error)) return false;
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
            continue;
        }
        if (argument == "--help" || argument == "-h" || argument == "--version") {
            (argument == "--version" ? options.version : options.help) = true;
            continue;
        }
        if (argument == "--tls") {
            options.tls = true;
            continue;
        }
        std::string name, value;
        const bool valueAttached = splitOption(argument, name, value);
        if (!takesValue(name)) {
            error = "unknown option " + argument.substr(0, argument.find('='));
            return false;
        }
        if (!valueAttached && i + 1 == argc) {
            error = "option " + name + " needs a value";
            return false;
        }
        if (!valueAttached) value = argv[++i];
        if (!applyOption(name, value, options, error)) return false;
    }
    return options.help || options.version || checkTls(options, error);
}

const char* clientUsageText() {
    return "Usage: rcclient [-H HOST] [-p PORT] [-t SECONDS] [--tls --ca FILE --cert FILE --key "
           "FILE]\n"
           "                [--version] [-h|--help] [COMMAND ...]\n"
           "\n"
           "Sends remote-control commands such as 'START(0,10,0.1,run.txt,10)' one at a time and\n"
           "prints every reply line. Without commands, reads one command per line from standard\n"
           "input until QUIT() or the end of input; there, quit, exit (with or without \"()\", in\n"
           "any case) also leave, and help prints the commands. Commands after QUIT() on the\n"
           "command line are refused (exit status 2). A line or command whose first character\n"
           "other than a blank is # is a comment and is not sent.\n"
           "\n"
           "When standard input and standard error are terminals, a prompt on standard error\n"
           "edits the line and keeps a history for the session (Up and Down recall earlier\n"
           "lines); Ctrl-C drops the line being typed, or gives up waiting for a command's\n"
           "replies, and returns to the prompt; Ctrl-D on an empty line leaves.\n"
           "\n"
           "  -H, --host HOST        server host name or address (default: 127.0.0.1)\n"
           "  -p, --port PORT        server port (default: 59876)\n"
           "  -t, --timeout SECONDS  seconds to wait for the connection and for a command's\n"
           "                         replies (default: 5); when given, an accepted START also\n"
           "                         waits at most count x time plus SECONDS for its final line\n"
           "  --tls                  speak TLS, for a server with TlsCertificate set; needs the\n"
           "                         three files below, each of which also implies --tls\n"
           "  --ca FILE              the authority (PEM) that must have signed the server's\n"
           "                         certificate, which must name HOST\n"
           "  --cert FILE            this client's certificate (PEM), as the server's\n"
           "                         TlsClientCA and TlsAllowedClients accept\n"
           "  --key FILE             its private key (PEM, unencrypted, mode 600)\n"
           "  --version              print the version\n"
           "  -h, --help             show this text\n"
           "\n"
           "Each command goes out followed by the line GUI_SETFILE(), whose answer \"ERROR:\n"
           "INVALID NUMBER OF PARAMETERS (MUST BE 2)\" marks the end of the command's replies\n"
           "(it is not printed). So a command that answers nothing on success returns after one\n"
           "round trip, and N of them take about N round trips. A GUI_SETFILE without two\n"
           "arguments answers that text itself and is sent alone.\n"
           "\n"
           "START waits for the acquisition's final line (OK or ERROR: ACQUISITION FAILED),\n"
           "without a limit unless --timeout is given, showing elapsed and expected seconds on\n"
           "standard error when it is a terminal. Ctrl-C, SIGTERM or SIGHUP meanwhile sends\n"
           "STOP() and keeps waiting for that line (a second one quits at once); then rcclient\n"
           "leaves, except that Ctrl-C at the prompt returns to it. A final line that ends an\n"
           "earlier client's acquisition is not printed; standard error says it was dropped.\n"
           "\n"
           "Exit status: 0 when no reply began with \"ERROR: \", 1 when one did or the\n"
           "connection failed during the session, 2 when the server could not be reached or\n"
           "the command line is wrong, 128 + the signal's number after Ctrl-C (130), SIGHUP\n"
           "(129) or SIGTERM (143), which send STOP() first when a START runs and wait for its\n"
           "final line.\n"
           "\n"
           "Over TLS everything above holds as over plain TCP. A file that cannot be used, a\n"
           "server certificate the authority did not sign or that does not name HOST, and a\n"
           "server that does not speak TLS end rcclient before any command (exit status 2); a\n"
           "server that refuses the client's certificate says so at the first reply (status 1).\n";
}

}  // namespace rcclient
