#include "apps/rcclient/commands.h"

#include <cctype>

#include "settings/str.h"

namespace rcclient {

namespace {

constexpr char kQuote = '"';

struct ParsedLine {
    std::string name;
    std::vector<std::string> args;
};

std::string trimBlanks(const std::string& text, bool leading, bool trailing) {
    size_t first = leading ? text.find_first_not_of(' ') : 0;
    if (first == std::string::npos) return "";
    size_t last = trailing ? text.find_last_not_of(' ') : text.size() - 1;
    return text.substr(first, last - first + 1);
}

std::vector<std::string> splitAt(const std::string& text, char delimiter) {
    std::vector<std::string> pieces(1);
    for (char c : text) {
        if (c == delimiter)
            pieces.emplace_back();
        else
            pieces.back().push_back(c);
    }
    return pieces;
}

bool endsWithQuote(const std::string& text) {
    return !text.empty() && text.back() == kQuote;
}

// False for a line the server ignores (no "(") or cannot take apart (a lone quote).
bool parseLine(const std::string& command, ParsedLine& parsed) {
    std::vector<std::string> pieces = splitAt(command, '(');
    if (pieces.size() < 2) return false;
    std::string text = pieces[1];
    if (!text.empty()) text.pop_back();
    if (!tokenizeArguments(text, parsed.args)) return false;
    parsed.name = pieces[0];
    for (char& c : parsed.name)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return true;
}

}  // namespace

std::string trimCommand(const std::string& line) {
    size_t end = line.find_last_not_of(" \r\n");
    return end == std::string::npos ? "" : line.substr(0, end + 1);
}

LineKind classifyCommand(const std::string& command) {
    if (command.empty()) return LineKind::Blank;
    if (command == "QUIT()") return LineKind::Quit;
    ParsedLine parsed;
    if (!parseLine(command, parsed)) return LineKind::Other;
    if (parsed.name == "GUI_SETFILE" && parsed.args.size() != 2) return LineKind::SelfSync;
    if (parsed.name == "START") return LineKind::Start;
    return LineKind::Other;
}

bool isFinalReply(const std::string& line) {
    return line == "OK" || line == "ERROR: ACQUISITION FAILED";
}

bool tokenizeArguments(const std::string& text, std::vector<std::string>& tokens) {
    tokens.clear();
    bool open = false;
    std::string accumulator;
    for (const std::string& piece : splitAt(text, ',')) {
        std::string leadTrimmed = trimBlanks(piece, true, false);
        std::string trimmed = trimBlanks(leadTrimmed, false, true);
        if (!open) {
            if (leadTrimmed.empty() || leadTrimmed[0] != kQuote) {
                tokens.push_back(trimmed);
            } else if (trimmed.size() == 1) {
                return false;
            } else if (endsWithQuote(trimmed)) {
                tokens.push_back(trimmed.substr(1, trimmed.size() - 2));
            } else {
                accumulator = leadTrimmed.substr(1);
                open = true;
            }
        } else if (endsWithQuote(trimmed)) {
            tokens.push_back(accumulator + "," + trimmed.substr(0, trimmed.size() - 1));
            open = false;
        } else {
            accumulator += "," + piece;
        }
    }
    return true;
}

bool startDuration(const std::string& command, double& seconds) {
    ParsedLine parsed;
    if (!parseLine(command, parsed) || parsed.args.size() != 5) return false;
    int count = str::toNumDef<int>(parsed.args[1], -1);
    double time = str::toNumDef<double>(parsed.args[2], -1.0);
    if (count < 0 || time < 0) return false;
    seconds = count * time;
    return true;
}

}  // namespace rcclient
