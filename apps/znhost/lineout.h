// Whole-line output for a process whose threads all write to the same descriptors.
//
// A line is handed to the kernel in a single write() so that lines from the plug-in's server
// thread, its acquisition thread and the host's own thread never interleave mid-line. Short
// writes and EINTR are retried; any other failure drops the rest of the line silently, since
// the host has nowhere left to report it.
#pragma once

#include <string>
#include <string_view>

namespace znhost {

// Writes `text` followed by a line feed to `fd`.
void writeLine(int fd, std::string_view text);

// Writes the host log line "[SOURCE] MESSAGE" to standard error.
void writeLogLine(std::string_view source, std::string_view message);

}  // namespace znhost
