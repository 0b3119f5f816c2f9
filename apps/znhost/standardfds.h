// A process started with standard input, output or error closed would hand those numbers to the
// first files and sockets it opens, and its log lines would then go into a client connection or
// a data file. znhost calls this before anything else, so that no descriptor it opens can be 0,
// 1 or 2.
#pragma once

namespace znhost {

// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed; open ones are left as
// they are. False (errno set) when /dev/null cannot be opened.
bool openClosedStandardDescriptors();

}  // namespace znhost
