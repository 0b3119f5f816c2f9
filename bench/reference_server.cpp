#include "bench/reference_server.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "bench/loopback.h"

namespace bench {

namespace {

constexpr size_t kBufferSize = 64 * 1024;
constexpr size_t kSameIoPiece = 510;
constexpr char kAnsweredPrefix[] = "GUI_ISRUNNING";
constexpr size_t kAnsweredPrefixLength = sizeof kAnsweredPrefix - 1;
constexpr char kReply[] = "NO\n";

bool isAnswered(const char* line, size_t length) {
    return length >= kAnsweredPrefixLength &&
           std::memcmp(line, kAnsweredPrefix, kAnsweredPrefixLength) == 0;
}

// Answers every complete line in data[0, size) and returns how many bytes they took.
size_t answerLines(int fd, const char* data, size_t size) {
    size_t start = 0;
    for (;;) {
        const void* end = std::memchr(data + start, '\n', size - start);
        if (end == nullptr) return start;
        const size_t lineEnd = static_cast<size_t>(static_cast<const char*>(end) - data);
        if (isAnswered(data + start, lineEnd - start)) sendAll(fd, kReply, sizeof kReply - 1);
        start = lineEnd + 1;
    }
}

// The socket layer waits with a one-second select() before every receive; so does this.
ssize_t receiveSameIo(int fd, char* into, size_t room) {
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval limit{1, 0};
        const int ready = select(fd + 1, &readable, nullptr, nullptr, &limit);
        if (ready < 0) return -1;
        if (ready > 0) return recv(fd, into, std::min(room, kSameIoPiece), 0);
    }
}

void serveClient(int fd, ReadStyle style) {
    std::vector<char> buffer(kBufferSize);
    size_t used = 0;
    for (;;) {
        if (used == buffer.size()) used = 0;  // a line longer than the buffer is dropped
        char* into = buffer.data() + used;
        const size_t room = buffer.size() - used;
        const ssize_t got =
            style == ReadStyle::Limit ? read(fd, into, room) : receiveSameIo(fd, into, room);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return;
        used += static_cast<size_t>(got);
        const size_t answered = answerLines(fd, buffer.data(), used);
        std::memmove(buffer.data(), buffer.data() + answered, used - answered);
        used -= answered;
    }
}

}  // namespace

int serveReference(int listenFd, ReadStyle style) {
    for (;;) {
        const int client = accept(listenFd, nullptr, nullptr);
        if (client < 0) {
            if (errno == EINTR) continue;
            return 1;
        }
        serveClient(client, style);
        close(client);
    }
}

const char* readStyleName(ReadStyle style) {
    return style == ReadStyle::Limit ? "limit" : "same-io";
}

}  // namespace bench
