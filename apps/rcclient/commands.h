// What rcclient needs to know of commands beyond how their replies pair: how long a START should
// run, and the words that an interactive user types to leave or to ask for help.
#pragma once

#include <string>
#include <string_view>

namespace rcclient {

// count x time of a START command, its arguments cut and converted as the server does. False
// when the command has no such two arguments or either is negative, in which case the server
// refuses it at once.
bool startDuration(const std::string& command, double& seconds);

// "quit", "quit()", "exit" or "exit()" in any case, blanks around allowed: the user wants to leave.
bool isLeaveWord(std::string_view line);
// "help", blanks around allowed.
bool isHelpWord(std::string_view line);

// The commands and their replies, one per line, for the interactive "help".
const char* commandTable();

}  // namespace rcclient
