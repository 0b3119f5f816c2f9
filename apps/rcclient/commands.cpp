#include "apps/rcclient/commands.h"

#include "protocol/command_language.h"
#include "settings/str.h"

#include <algorithm>
#include <cctype>

namespace rcclient {

namespace {

std::string lowerTrimmed(std::string_view line) {
    std::string text = str::trim(std::string(line), " \t\r\n");
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace

bool startDuration(const std::string& command, double& seconds) {
    const protocol::ParsedLine parsed = protocol::classifyLine(command);
    if (parsed.kind != protocol::LineKind::Command || parsed.args.size() != 5) return false;
    const int count = str::toNumDef<int>(parsed.args[1], -1);
    const double time = str::toNumDef<double>(parsed.args[2], -1.0);
    if (count < 0 || time < 0) return false;
    seconds = count * time;
    return true;
}

bool isComment(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && line[first] == '#';
}

bool isLeaveWord(std::string_view line) {
    const std::string word = lowerTrimmed(line);
    return word == "quit" || word == "quit()" || word == "exit" || word == "exit()";
}

bool isHelpWord(std::string_view line) {
    return lowerTrimmed(line) == "help";
}

const char* commandTable() {
    return "START(device,count,time,file,threshold)  OK or ERROR: ACQUISITION FAILED at its end\n"
           "STOP()                                   aborts the running acquisition\n"
           "GUI_START(device)                        nothing on success\n"
           "GUI_SETFILE(device,file)                 nothing on success\n"
           "GUI_ISRUNNING(device)                    YES or NO\n"
           "GUI_STOP(device)                         nothing on success\n"
           "QUIT()                                   ends the session (also quit, exit)\n";
}

}  // namespace rcclient
