#include "apps/rcclient/commands.h"

#include <cctype>
#include <vector>

#include "settings/str.h"

namespace rcclient {

namespace {

std::string commandName(const std::string& command) {
    std::string name = command.substr(0, command.find('('));
    for (char& c : name)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

// The argument text as the server takes it: after the first "(", without its last character,
// cut at a second "(", split at commas outside double quotes.
std::vector<std::string> splitArguments(const std::string& command) {
    size_t open = command.find('(');
    std::string text = command.substr(open + 1);
    if (!text.empty()) text.pop_back();
    text = text.substr(0, text.find('('));
    std::vector<std::string> args(1);
    bool quoted = false;
    for (char c : text) {
        if (c == '"') quoted = !quoted;
        if (c == ',' && !quoted)
            args.emplace_back();
        else
            args.back().push_back(c);
    }
    return args;
}

}  // namespace

std::string trimCommand(const std::string& line) {
    size_t end = line.find_last_not_of(" \r\n");
    return end == std::string::npos ? "" : line.substr(0, end + 1);
}

ReplyRule replyRule(const std::string& command) {
    if (command.empty()) return ReplyRule::Blank;
    if (command == "QUIT()") return ReplyRule::Quit;
    if (command.find('(') == std::string::npos) return ReplyRule::MaySkip;
    std::string name = commandName(command);
    if (name == "START") return ReplyRule::Start;
    if (name == "GUI_ISRUNNING") return ReplyRule::Answer;
    return ReplyRule::MaySkip;
}

bool startDuration(const std::string& command, double& seconds) {
    if (command.find('(') == std::string::npos) return false;
    std::vector<std::string> args = splitArguments(command);
    if (args.size() != 5) return false;
    int count = str::toNumDef<int>(args[1], -1);
    double time = str::toNumDef<double>(args[2], -1.0);
    if (count < 0 || time < 0) return false;
    seconds = count * time;
    return true;
}

}  // namespace rcclient
