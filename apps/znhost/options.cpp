#include "apps/znhost/options.h"

#include <cstring>

#include "protocol/port.h"

namespace znhost {

namespace {

// Splits "--name=value" into name and value; other arguments come back whole with no value.
void splitArgument(const std::string& argument, std::string& name, std::string& value,
                   bool& hasValue) {
    size_t equals = argument.find('=');
    hasValue = argument.compare(0, 2, "--") == 0 && equals != std::string::npos;
    name = hasValue ? argument.substr(0, equals) : argument;
    value = hasValue ? argument.substr(equals + 1) : "";
}

std::string* valueTarget(const std::string& name, Options& options) {
    if (name == "--config") return &options.configFile;
    if (name == "--settings-dir") return &options.settingsDir;
    if (name == "--data-dir") return &options.dataDir;
    return nullptr;
}

// False with `error` when the value does not parse.
bool storeValue(const std::string& name, const std::string& value, Options& options,
                std::string& error) {
    if (name == "--plugin") {
        options.plugins.push_back(value);
    } else if (name != "--port") {
        *valueTarget(name, options) = value;
    } else {
        unsigned short port = 0;
        if (!protocol::parsePort(value, port)) {
            error = "--port needs a number from 1 to 65535";
            return false;
        }
        options.port = port;
    }
    return true;
}

}  // namespace

bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string name, value;
        bool hasValue = false;
        splitArgument(argv[i], name, value, hasValue);
        bool takesValue =
            name == "--plugin" || name == "--port" || valueTarget(name, options) != nullptr;
        if (name == "-h") name = "--help";
        bool isFlag = name == "--trace" || name == "--help" || name == "--version";
        if (!takesValue && !isFlag) {
            error = std::strncmp(argv[i], "-", 1) == 0 ? "unknown option " + name
                                                       : "unexpected argument " + name;
            return false;
        }
        if (isFlag) {
            if (hasValue) {
                error = "option " + name + " takes no value";
                return false;
            }
            bool& flag = name == "--trace"  ? options.trace
                         : name == "--help" ? options.help
                                            : options.version;
            flag = true;
            continue;
        }
        if (!hasValue) {
            if (i + 1 >= argc) {
                error = "option " + name + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        if (value.empty()) {
            error = "option " + name + " needs a non-empty value";
            return false;
        }
        if (!storeValue(name, value, options, error)) return false;
    }
    return true;
}

const char* usageText() {
    return "Usage: znhost [--config FILE] [--settings-dir DIR] [--data-dir DIR] [--port N]\n"
           "              [--trace] [--plugin PATH]... [--version] [-h|--help]\n"
           "\n"
           "A stand-in device-control host: loads plug-in modules, simulates devices and runs\n"
           "until SIGINT or SIGTERM.\n"
           "\n"
           "  --config FILE       INI file describing the simulated devices and devcontrol\n"
           "                      (default: devices sim0 and sim1, devcontrol loaded)\n"
           "  --settings-dir DIR  folder the plug-ins read their settings files from (default: .)\n"
           "  --data-dir DIR      folder where simulated acquisitions write (default: .)\n"
           "  --port N            port for the remotectrl plug-in, whatever its settings file\n"
           "                      says (the file's other settings still hold)\n"
           "  --trace             write every call a plug-in makes on the host to stderr\n"
           "  --plugin PATH       plug-in module to load; may be repeated\n"
           "                      (default: ../lib/remotectrl/plugins/remotectrl.so beside\n"
           "                      this program if it exists, else ../lib/remotectrl.so)\n"
           "  --version           print the version\n"
           "  -h, --help          show this text\n"
           "\n"
           "Prints \"loaded NAME: DESCRIPTION\" for each plug-in, \"listening on ADDRESS:PORT\"\n"
           "for each socket the plug-ins listen on, then \"ready\" once they serve (or \"not\n"
           "listening: see the log\"), and \"closed\" after a stop signal has closed every\n"
           "plug-in. Host log lines and trace lines go to stderr; a reader that stops reading\n"
           "never blocks or ends znhost. Exit status: 0 after a stop signal, 2 on a usage,\n"
           "config, folder or load error.\n"
           "\n"
           "The remotectrl plug-in reads remotectrl.ini in the settings folder: section\n"
           "[Settings], keys Port, Address, AllowFrom and IdleTimeout spelt exactly so (a UTF-8\n"
           "byte-order mark is skipped, other sections are ignored). A file that exists but\n"
           "cannot be read, another key in [Settings], [Settings] in another letter case, or an\n"
           "Address, AllowFrom or IdleTimeout that does not parse is logged, and the plug-in\n"
           "does not listen. No file: port 59876 on every interface, for every client.\n"
           "\n"
           "Standard input, output or error that znhost is started with closed are opened on\n"
           "/dev/null first, so that no socket or file znhost opens takes their number.\n";
}

}  // namespace znhost
