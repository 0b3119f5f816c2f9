// What the client makes of one command line, read the way the plug-in reads it.
//
// The server trims trailing blanks, carriage returns and line feeds, ends the session on an empty
// line or exactly "QUIT()", and otherwise splits the line at every "(": the name is the first
// piece upper-cased and untrimmed (so " START(" is an unknown name), the argument text is the
// second piece without its last character, cut at commas by the quote rules (tokenizeArguments).
//   Blank     nothing left after trimming: never sent, since the server would end the session
//   Quit      exactly "QUIT()": sent, and the session ends without a reply
//   SelfSync  GUI_SETFILE with other than two arguments: answered by the sync text itself,
//             so it is sent without the sync line
//   Start     START: its acquisition may send a final line after its sync reply
//   Other     everything else, sent followed by the sync line
#pragma once

#include <string>
#include <vector>

namespace rcclient {

enum class LineKind { Blank, Quit, SelfSync, Start, Other };

// Sent after every command but Quit and SelfSync; the server answers it with kSyncReply, in
// order, in every state, without calling the host.
constexpr const char* kSyncCommand = "GUI_SETFILE()";
constexpr const char* kSyncReply = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)";

std::string trimCommand(const std::string& line);

// `command` must already be trimmed.
LineKind classifyCommand(const std::string& command);

// "OK" or "ERROR: ACQUISITION FAILED": the end of an acquisition, whenever it arrives.
bool isFinalReply(const std::string& line);

// The server's quote rules: blanks (spaces only) around a comma-separated piece are dropped; a
// piece starting with a double quote opens an argument that ends with the first later piece
// ending in one (the comma kept, blanks at the start of that closing piece lost); an argument
// left open at the end is dropped. False when a piece is a lone double quote, which the server
// cannot take apart.
bool tokenizeArguments(const std::string& text, std::vector<std::string>& tokens);

// count x time of a START command, its arguments cut and converted as the server does. False
// when the command has no such two arguments or either is negative, in which case the server
// refuses it at once.
bool startDuration(const std::string& command, double& seconds);

}  // namespace rcclient
