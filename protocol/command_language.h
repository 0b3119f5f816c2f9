// The command language: how the server reads one received line, NAME(argument,argument,...).
//
// A session trims trailing blanks, carriage returns and line feeds from a line; an empty line or
// exactly "QUIT()" ends the session. Any other line is split at every "(": a line with none is
// ignored without reply; otherwise the name is the first piece (neither trimmed nor case-changed)
// and the argument text is the second piece without its last character (the closing parenthesis
// in a well-formed line, but dropped whatever it is); everything from a second "(" on is ignored.
// The argument text is cut at commas by tokenizeQuotedString. Names are matched without regard
// to case, but blanks around a name make it another name.
//
// Settled choices:
// - A piece that is a lone double quote has no meaning (it would open and close a quoted
//   argument at once): tokenizeQuotedString yields nothing and the line is a SyntaxError, which
//   the plug-in answers "ERROR: INVALID COMMAND SYNTAX" before it goes on with the next line.
// - With a delimiter string of several characters, splitting treats each as a delimiter and
//   resumes the search the length of the whole string after the one found; joining re-inserts
//   only its first character. The server itself only ever passes ",".
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace protocol {

enum class LineKind { SessionEnd, Ignored, SyntaxError, Command };

struct ParsedLine {
    LineKind kind = LineKind::Ignored;
    std::string name;               // as sent, for a Command
    std::vector<std::string> args;  // what the command's handler receives
};

// The commands the server knows; every other name is Unknown.
enum class Command { Start, Stop, GuiStart, GuiSetFile, GuiIsRunning, GuiStop, Unknown };

// The line without its trailing blanks, carriage returns and line feeds.
std::string_view trimLineEnd(std::string_view line);

// True for a trimmed line that ends the session: empty, or exactly "QUIT()".
bool endsSession(std::string_view trimmedLine);

// Splits text at every character of delimiters, keeping empty pieces: n delimiters give n + 1
// pieces.
std::vector<std::string> splitString(std::string_view text, std::string_view delimiters);

// Cuts argument text into tokens. Blanks (spaces only) around a piece are dropped; a piece that
// starts with a double quote opens a token that may hold delimiters and ends with the first later
// piece ending in one (blanks at the start of that closing piece are lost, blanks before its
// quote stay); a quote anywhere else is an ordinary character; a token left open at the end is
// dropped. Nothing when a piece is a lone double quote.
std::optional<std::vector<std::string>> tokenizeQuotedString(std::string_view text,
                                                             std::string_view delimiters);

// A trimmed line taken apart: Ignored, SyntaxError or Command (never SessionEnd).
ParsedLine parseCommandString(std::string_view trimmedLine);

// A received line as a session sees it: trimmed, then SessionEnd or parsed.
ParsedLine classifyLine(std::string_view line);

// One row of the command table: the name in upper case, how many arguments the command takes and
// the reply to another count. A row's argumentCount is kAnyArgumentCount when any count will do.
constexpr int kAnyArgumentCount = -1;
struct CommandRule {
    Command command;
    std::string_view upperName;
    int argumentCount;
    const char* wrongCountReply;
    bool acceptsArgumentCount(size_t count) const;
};

// The row whose name matches without regard to case; Command::Unknown's row for any other name.
const CommandRule& findCommand(std::string_view name);
Command matchCommand(std::string_view name);

}  // namespace protocol
