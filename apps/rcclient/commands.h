// What the client expects back from the server for one command line.
//
// Commands are classified as the plug-in parses them: the name is everything before the first
// "(", upper-cased, untrimmed (so " START(" is an unknown name). Trailing blanks, carriage returns
// and line feeds are trimmed first, as the server trims them.
//   Blank      nothing left after trimming: never sent, since the server ends the session on it
//   Quit       exactly "QUIT()": sent, and the session ends without a reply
//   Start      START: one reply, after the whole acquisition (or at once when refused)
//   Answer     GUI_ISRUNNING: one reply, YES, NO or an error
//   MaySkip    STOP, GUI_START, GUI_SETFILE, GUI_STOP, unknown names and lines without "(":
//              usually no reply, possibly an "ERROR: " line
#pragma once

#include <string>

namespace rcclient {

enum class ReplyRule { Blank, Quit, Start, Answer, MaySkip };

std::string trimCommand(const std::string& line);

// `command` must already be trimmed.
ReplyRule replyRule(const std::string& command);

// count x time of a START command, with the arguments split and converted as the server does for
// plain (unquoted) numbers. False when the command has no such two arguments or either is
// negative, in which case the server refuses it at once.
bool startDuration(const std::string& command, double& seconds);

}  // namespace rcclient
