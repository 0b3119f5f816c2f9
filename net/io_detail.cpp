#include "net/io_detail.h"

#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace net {
namespace io_detail {

namespace {

constexpr int kReasonSize = 128;

// strerror_r comes in two forms, by feature macros: GNU returns the text, XSI fills the buffer.
// Only one of these is called in a given build.
[[maybe_unused]] const char* reasonText(const char* gnuText, const char*) {
    return gnuText;
}
[[maybe_unused]] const char* reasonText(int, const char* buffer) {
    return buffer;
}

// A wait takes the caller's time-out as whole seconds plus microseconds, both truncated toward
// zero. A negative time-out is a failed wait with EINVAL; a NaN gets the same treatment, and a
// time-out beyond int range is held at INT_MAX seconds instead of overflowing the conversion.
bool toTimespec(double timeout, timespec& limit) {
    if (!(timeout >= 0.0)) {
        errno = EINVAL;
        return false;
    }
    const int seconds = timeout >= INT_MAX ? INT_MAX : static_cast<int>(timeout);
    const int micros = seconds == INT_MAX ? 0 : static_cast<int>((timeout - seconds) * 1000000.0);
    limit.tv_sec = seconds;
    limit.tv_nsec = static_cast<long>(micros) * 1000;
    return true;
}

}  // namespace

std::string describeFailure(const char* call, const std::string& where) {
    const int error = errno;
    char buffer[kReasonSize] = {};
    std::string text = call;
    if (!where.empty()) text += " " + where;
    text += ": ";
    text += reasonText(::strerror_r(error, buffer, sizeof buffer), buffer);
    errno = error;
    return text;
}

// The layer's only blocking call. ppoll() watches any descriptor number (select() stops at 1024),
// and a signal always interrupts it, SA_RESTART or not; the interruption is a failure, never
// retried. ppoll skips a negative descriptor silently, which would look like a time-out, so that
// is a failure here. An error or hang-up on the descriptor counts as ready, so that the
// following call reports it. A null `limit` waits without end.
WaitResult pollOnce(int fd, short events, const timespec* limit) {
    if (fd < 0) {
        errno = EBADF;
        return WaitResult::kFailed;
    }
    pollfd entry{fd, events, 0};
    const int ready = ::ppoll(&entry, 1, limit, nullptr);
    if (ready < 0) return WaitResult::kFailed;
    return ready > 0 ? WaitResult::kReady : WaitResult::kTimedOut;
}

WaitResult waitFor(int fd, short events, double timeout) {
    timespec limit{};
    if (!toTimespec(timeout, limit)) return WaitResult::kFailed;
    return pollOnce(fd, events, &limit);
}

// Calls after a wait never block (MSG_DONTWAIT), whatever mode the descriptor is in: a blocking
// send of a large piece would otherwise outlast the time-out. Sending on a connection the peer
// has reset raises SIGPIPE, whose default action ends the whole host process; MSG_NOSIGNAL turns
// that into a plain EPIPE failure.
ssize_t sendPiece(int fd, const char* data, int length) {
    return ::send(fd, data, static_cast<size_t>(length), MSG_NOSIGNAL | MSG_DONTWAIT);
}

ssize_t receivePiece(int fd, char* data, int length) {
    return ::recv(fd, data, static_cast<size_t>(length), MSG_DONTWAIT);
}

}  // namespace io_detail
}  // namespace net
