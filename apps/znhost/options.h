// znhost's command line.
//
// Options take their value as the next argument or after "=" (--data-dir=out). --plugin may be
// repeated; when it is absent the caller supplies the default module. Positional arguments and
// unknown options are usage errors.
#pragma once

#include <string>
#include <vector>

namespace znhost {

struct Options {
    std::string configFile;
    std::string settingsDir = ".";
    std::string dataDir = ".";
    int port = 0;  // 0: the plug-in's settings file decides
    bool trace = false;
    std::vector<std::string> plugins;
    bool help = false;
    bool version = false;
};

// True when the arguments are well-formed; otherwise false with a one-line `error`.
bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error);

const char* usageText();

}  // namespace znhost
