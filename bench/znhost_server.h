// The build's znhost (found beside the benchmark programs) as a benchmark's server.
#pragma once

#include <string>

#include "tests/support/process.h"

namespace bench {

// Starts znhost with its default simulated devices and the plug-in on `port`, its settings, data
// and output in `folder` (which must exist), and waits until it serves. Returns "" then, else
// why it does not serve. The caller stops the process (SIGTERM, see stopServer()).
std::string startZnhost(const std::string& folder, int port, testsupport::ChildProcess& process);

// SIGTERM, and SIGKILL when the process has not ended within a few seconds.
void stopServer(testsupport::ChildProcess& process);

}  // namespace bench
