#include "apps/rcclient/linereader.h"

#include <cerrno>

#include "net/results.h"

namespace rcclient {

namespace {

constexpr int kChunkSize = 4096;

}  // namespace

LineReader::Result LineReader::next(std::string& line, double seconds) {
    if (takeLine(line)) return Result::Line;
    char chunk[kChunkSize];
    const int received = mStream.readSome(chunk, kChunkSize, seconds);
    if (received == 0) return Result::Closed;
    if (received == net::kTimedOut) return Result::None;
    if (received < 0) {
        const bool interrupted = received == net::kTransferWaitFailed && errno == EINTR;
        return interrupted ? Result::None : Result::Failed;
    }
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
