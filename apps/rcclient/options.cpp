#include "apps/rcclient/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

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

bool applyOption(const std::string& name, const std::string& value, ClientOptions& options,
                 std::string& error) {
    if (name == "--host") {
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
        size_t equals = argument.find('=');
        std::string name = argument.substr(0, equals);
        if (name != "--host" && name != "--port" && name != "--timeout") {
            error = "unknown option " + name;
            return false;
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < argc) {
            value = argv[++i];
        } else {
            error = "option " + name + " needs a value";
            return false;
        }
        if (!applyOption(name, value, options, error)) return false;
    }
    return true;
}

const char* clientUsageText() {
    return "Usage: rcclient [--host H] [--port P] [--timeout S] [--version] [-h|--help] [COMMAND "
           "...]\n"
           "\n"
           "Sends remote-control commands such as 'START(0,10,0.1,run.txt,10)' one at a time and\n"
           "prints every reply line. Without commands, reads one command per line from standard\n"
           "input until QUIT() or the end of input; there, quit, exit (with or without \"()\", in\n"
           "any case) also leave, and help prints the commands. Commands after QUIT() on the\n"
           "command line are refused (exit status 2).\n"
           "\n"
           "  --host H     server host name or address (default: 127.0.0.1)\n"
           "  --port P     server port (default: 59876)\n"
           "  --timeout S  seconds to wait for the connection and for a command's replies\n"
           "               (default: 5); when given, an accepted START also waits at most\n"
           "               count x time plus S for its final line\n"
           "  --version    print the version\n"
           "  -h, --help   show this text\n"
           "\n"
           "Each command goes out followed by the line GUI_SETFILE(), whose answer \"ERROR:\n"
           "INVALID NUMBER OF PARAMETERS (MUST BE 2)\" marks the end of the command's replies\n"
           "(it is not printed). So a command that answers nothing on success returns after one\n"
           "round trip, and N of them take about N round trips. A GUI_SETFILE without two\n"
           "arguments answers that text itself and is sent alone.\n"
           "\n"
           "START waits for the acquisition's final line (OK or ERROR: ACQUISITION FAILED),\n"
           "without a limit unless --timeout is given, showing elapsed and expected seconds on\n"
           "standard error when it is a terminal; Ctrl-C meanwhile sends STOP() and keeps\n"
           "waiting for that line (a second Ctrl-C quits). A final line that ends an earlier\n"
           "client's acquisition is not printed; standard error says it was dropped.\n"
           "\n"
           "Exit status: 0 when no reply began with \"ERROR: \", 1 when one did or the\n"
           "connection failed during the session, 2 when the server could not be reached or\n"
           "the command line is wrong, 130 after Ctrl-C (which sends STOP() first when a START\n"
           "runs, and waits for its final line).\n";
}

}  // namespace rcclient
