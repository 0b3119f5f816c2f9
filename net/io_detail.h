// Internal to the socket layer: the system calls that wait, send and receive, each wrapped once
// with the quirk it needs, and the wording of a failure. The plain and the TLS connections share
// them.
#pragma once

#include <poll.h>
#include <sys/types.h>
#include <time.h>

#include <string>

namespace net {
namespace io_detail {

enum class WaitResult { kReady, kTimedOut, kFailed };

// Waits until `fd` has one of `events`, at most `timeout` seconds (see toTimespec in the source
// for the conversion); a negative or NaN time-out is a failed wait with EINVAL.
WaitResult waitFor(int fd, short events, double timeout);
// The same without a time-out when `limit` is null.
WaitResult pollOnce(int fd, short events, const timespec* limit);

// One send or receive that never blocks and never raises SIGPIPE; the system's result.
ssize_t sendPiece(int fd, const char* data, int length);
ssize_t receivePiece(int fd, char* data, int length);

// "call where: reason" from errno, which is left as it was.
std::string describeFailure(const char* call, const std::string& where = "");

}  // namespace io_detail
}  // namespace net
