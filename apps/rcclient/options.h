// rcclient's command line: rcclient [-H HOST] [-p PORT] [-t SECONDS]
//     [--tls --ca FILE --cert FILE --key FILE] [--version] [COMMAND ...]
//
// -H, -p and -t are --host, --port and --timeout. Options take their value as the next argument,
// after "=" in the long form, or right after the letter in the short one; "--" ends the options.
// Any of --tls, --ca, --cert and --key asks for TLS, which needs all three files: a TLS server
// always asks for a client certificate, so a half-given set is a mistake to report, not to guess.
// The port must be 1..65535 and the time-out a positive number of seconds (default 5); whether it
// was given decides whether it also bounds an accepted START's wait for its final line. Commands
// must not hold line breaks, since each would split into several commands on the wire.
#pragma once

#include <string>
#include <vector>

#include "protocol/settings_file.h"

namespace rcclient {

constexpr unsigned short kDefaultPort = protocol::kDefaultPort;
constexpr double kDefaultTimeout = 5.0;

struct ClientOptions {
    std::string host = "127.0.0.1";
    unsigned short port = kDefaultPort;
    double timeout = kDefaultTimeout;
    bool timeoutGiven = false;
    bool tls = false;
    std::string caFile, certificateFile, keyFile;
    std::vector<std::string> commands;
    bool help = false;
    bool version = false;
};

// True when the arguments are well-formed; otherwise false with a one-line `error`.
bool parseClientOptions(int argc, const char* const* argv, ClientOptions& options,
                        std::string& error);

const char* clientUsageText();

}  // namespace rcclient
