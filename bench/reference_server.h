// The reference servers the plug-in is measured against: plain POSIX, one thread, one client at
// a time. Each answers "NO" to every line that starts with GUI_ISRUNNING and nothing to any
// other line, so the difference to the plug-in is what the plug-in does per command.
//   Limit   blocking read() calls of up to 64 KiB: the least a server can do per byte.
//   SameIo  select() and then recv() of at most 510 bytes per call: the reading style of the
//           socket layer's getLine, so the plug-in's own cost shows against it.
#pragma once

namespace bench {

enum class ReadStyle { Limit, SameIo };

// Accepts and serves clients on `listenFd` until the process is killed; returns 1 only when
// accept fails.
int serveReference(int listenFd, ReadStyle style);

const char* readStyleName(ReadStyle style);

}  // namespace bench
