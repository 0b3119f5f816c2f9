// Whole-line output for a process whose threads all write to the same descriptors.
//
// Once startOutputThread() has run, every line goes into one bounded queue that a writer thread
// of its own empties, so that a reader that is slow, gone or never reads can neither block nor
// kill a plug-in's thread. When the queue is full a line is dropped and counted; the count is
// written to standard error as "[znhost] N output lines dropped" once the writer has room again.
// Before that call (and in tests that never make it) a line is written at once by its caller.
// A line is handed to the kernel in a single write() so that lines never interleave mid-line.
// Short writes and EINTR are retried; any other failure, EPIPE from a closed pipe included, drops
// the rest of the line silently, since the host has nowhere left to report it.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace znhost {

constexpr size_t kOutputQueueLines = 1024;
// The source of znhost's own log lines.
constexpr const char* kHostLogSource = "znhost";

// Writes `text` followed by a line feed to `fd`.
void writeLine(int fd, std::string_view text);

// Writes the host log line "[SOURCE] MESSAGE" to standard error.
void writeLogLine(std::string_view source, std::string_view message);

// Starts the writer thread (once per process; later calls do nothing). It runs until the process
// ends and keeps SIGPIPE blocked for itself only, so that a closed pipe gives it EPIPE while the
// process keeps SIGPIPE's disposition for everyone else.
void startOutputThread(size_t capacity = kOutputQueueLines);

// Waits at most `bound` until every queued line has been written. False when time ran out.
bool flushOutput(std::chrono::milliseconds bound);

}  // namespace znhost
