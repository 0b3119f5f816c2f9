// What rcclient needs to know of commands beyond how their replies pair: how long a START should
// run, which lines are comments, and the words that an interactive user types to leave or to ask
// for help.
#pragma once

#include <string>
#include <string_view>

namespace rcclient {

// count x time of a START command, its arguments cut and converted as the server does. False
// when the command has no such two arguments or either is negative, in which case the server
// refuses it at once.
bool startDuration(const std::string& command, double& seconds);

// A line whose first character other than a space or tab is "#": a note in a script or at the
// prompt, never sent. The server would take one without "(" for nothing and answer one with "("
// as an unknown command, so no command is lost by skipping them.
bool isComment(std::string_view line);

// "quit", "quit()", "exit" or "exit()" in any case, blanks around allowed: the user wants to leave.
bool isLeaveWord(std::string_view line);
// "help", blanks around allowed.
bool isHelpWord(std::string_view line);

// The commands and their replies, one per line, for the interactive "help".
const char* commandTable();

}  // namespace rcclient
