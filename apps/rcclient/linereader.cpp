#include "apps/rcclient/linereader.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>

namespace rcclient {

namespace {

constexpr size_t kChunkSize = 4096;

bool isTransient(int error) {
    return error == EINTR || error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

LineReader::Result LineReader::next(std::string& line, double seconds) {
    if (takeLine(line)) return Result::Line;
    int ready = mSocket.recvReady(seconds);
    if (ready == net::kTimedOut) return Result::None;
    if (ready != 0) return errno == EINTR ? Result::None : Result::Failed;
    char chunk[kChunkSize];
    ssize_t received = ::recv(mSocket.getDescriptor(), chunk, sizeof chunk, 0);
    if (received == 0) return Result::Closed;
    if (received < 0) return isTransient(errno) ? Result::None : Result::Failed;
    mBuffer.append(chunk, static_cast<size_t>(received));
    return takeLine(line) ? Result::Line : Result::None;
}

bool LineReader::takeLine(std::string& line) {
    size_t end = mBuffer.find('\n');
    if (end == std::string::npos) return false;
    line = mBuffer.substr(0, end);
    mBuffer.erase(0, end + 1);
    return true;
}

}  // namespace rcclient
