#include "protocol/command_language.h"

#include <algorithm>
#include <cctype>

#include "protocol/replies.h"

namespace protocol {

namespace {

constexpr std::string_view kArgumentDelimiter = ",";
constexpr std::string_view kLineEndBlanks = " \r\n";

// STOP ignores its arguments; every other command answers a wrong count before it looks at them.
constexpr CommandRule kCommands[] = {
    {Command::Start, "START", 5, kErrorStartArgumentCount},
    {Command::Stop, "STOP", kAnyArgumentCount, nullptr},
    {Command::GuiStart, "GUI_START", 1, kErrorOneArgument},
    {Command::GuiSetFile, "GUI_SETFILE", 2, kErrorTwoArguments},
    {Command::GuiIsRunning, "GUI_ISRUNNING", 1, kErrorOneArgument},
    {Command::GuiStop, "GUI_STOP", 1, kErrorOneArgument},
};

constexpr CommandRule kUnknownCommand = {Command::Unknown, "", kAnyArgumentCount, nullptr};

std::string_view withoutLeadingBlanks(std::string_view text) {
    const std::string_view::size_type begin = text.find_first_not_of(' ');
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

std::string_view withoutTrailingBlanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);  // npos + 1 is 0: all blanks
}

bool equalsUpperCased(std::string_view name, std::string_view upperName) {
    return name.size() == upperName.size() &&
           std::equal(name.begin(), name.end(), upperName.begin(), [](char a, char b) {
               return std::toupper(static_cast<unsigned char>(a)) == b;
           });
}

// Calls visit(piece) for every piece splitString would cut, as views into `text`, until visit
// returns false.
template <typename Visit>
void forEachPiece(std::string_view text, std::string_view delimiters, Visit visit) {
    std::string_view::size_type position = 0;
    for (;;) {
        const std::string_view::size_type found = delimiters.size() == 1
                                                      ? text.find(delimiters[0], position)
                                                      : text.find_first_of(delimiters, position);
        if (found == std::string_view::npos) {
            visit(text.substr(position));
            return;
        }
        if (!visit(text.substr(position, found - position))) return;
        // Past the end only with a delimiter string longer than the text's remainder.
        position = std::min(found + delimiters.size(), text.size());
    }
}

// The quote-aware joining, appending to `tokens`; false on a lone-quote piece.
bool tokenizeInto(std::string_view text, std::string_view delimiters,
                  std::vector<std::string>& tokens) {
    const char delimiter = delimiters.empty() ? ',' : delimiters[0];
    bool quoteOpen = false;
    bool loneQuote = false;
    std::string accumulator;
    forEachPiece(text, delimiters, [&](std::string_view piece) {
        const std::string_view leadTrimmed = withoutLeadingBlanks(piece);
        const std::string_view trimmed = withoutTrailingBlanks(leadTrimmed);
        if (!quoteOpen) {
            if (leadTrimmed.empty() || leadTrimmed[0] != '"') {
                tokens.emplace_back(trimmed);
            } else if (trimmed.size() == 1) {
                loneQuote = true;
                return false;
            } else if (trimmed.back() == '"') {
                tokens.emplace_back(trimmed.substr(1, trimmed.size() - 2));
            } else {
                accumulator.assign(leadTrimmed.substr(1));
                quoteOpen = true;
            }
        } else if (!trimmed.empty() && trimmed.back() == '"') {
            accumulator += delimiter;
            accumulator.append(trimmed.substr(0, trimmed.size() - 1));
            tokens.push_back(std::move(accumulator));
            accumulator.clear();
            quoteOpen = false;
        } else {
            accumulator += delimiter;
            accumulator.append(piece);
        }
        return true;
    });
    return !loneQuote;  // an unterminated quoted token is dropped with the accumulator
}

}  // namespace

std::string_view trimLineEnd(std::string_view line) {
    return line.substr(0, line.find_last_not_of(kLineEndBlanks) + 1);  // npos + 1 is 0
}

bool endsSession(std::string_view trimmedLine) {
    return trimmedLine.empty() || trimmedLine == "QUIT()";
}

std::vector<std::string> splitString(std::string_view text, std::string_view delimiters) {
    std::vector<std::string> pieces;
    forEachPiece(text, delimiters, [&](std::string_view piece) {
        pieces.emplace_back(piece);
        return true;
    });
    return pieces;
}

std::optional<std::vector<std::string>> tokenizeQuotedString(std::string_view text,
                                                             std::string_view delimiters) {
    std::vector<std::string> tokens;
    if (!tokenizeInto(text, delimiters, tokens)) return std::nullopt;
    return tokens;
}

ParsedLine parseCommandString(std::string_view trimmedLine) {
    ParsedLine parsed;
    const std::string_view::size_type open = trimmedLine.find('(');
    if (open == std::string_view::npos) return parsed;  // ignored, no reply
    std::string_view argumentText = trimmedLine.substr(open + 1);
    argumentText = argumentText.substr(0, argumentText.find('('));
    if (!argumentText.empty()) argumentText.remove_suffix(1);
    // One token per comma at most, so the list never grows while it is filled.
    parsed.args.reserve(static_cast<size_t>(
        std::count(argumentText.begin(), argumentText.end(), kArgumentDelimiter[0]) + 1));
    if (!tokenizeInto(argumentText, kArgumentDelimiter, parsed.args)) {
        parsed.kind = LineKind::SyntaxError;
        parsed.args.clear();
        return parsed;
    }
    parsed.kind = LineKind::Command;
    parsed.name.assign(trimmedLine.substr(0, open));
    return parsed;
}

ParsedLine classifyLine(std::string_view line) {
    const std::string_view trimmed = trimLineEnd(line);
    if (endsSession(trimmed)) {
        ParsedLine end;
        end.kind = LineKind::SessionEnd;
        return end;
    }
    return parseCommandString(trimmed);
}

const CommandRule& findCommand(std::string_view name) {
    for (const CommandRule& known : kCommands)
        if (equalsUpperCased(name, known.upperName)) return known;
    return kUnknownCommand;
}

Command matchCommand(std::string_view name) {
    return findCommand(name).command;
}

bool CommandRule::acceptsArgumentCount(size_t count) const {
    return argumentCount == kAnyArgumentCount || count == static_cast<size_t>(argumentCount);
}

}  // namespace protocol
