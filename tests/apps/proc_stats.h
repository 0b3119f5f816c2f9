// What /proc tells about a process: open descriptors, threads and peak resident memory. A pid of 0
// means the calling process, whose descriptor count then includes the one used for the listing.
// Results are -1 when the process (or /proc) cannot be read.
#pragma once

#include <sys/types.h>

namespace apps_test {

int openDescriptorCount(pid_t pid);
int threadCount(pid_t pid);
// VmHWM: the highest resident set size the process has had, in kB.
long peakResidentKb(pid_t pid);

}  // namespace apps_test
