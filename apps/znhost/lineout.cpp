#include "apps/znhost/lineout.h"

#include <unistd.h>

#include <cerrno>

namespace znhost {

void writeLine(int fd, std::string_view text) {
    std::string line;
    line.reserve(text.size() + 1);
    line.append(text);
    line.push_back('\n');
    const char* next = line.data();
    size_t left = line.size();
    while (left > 0) {
        ssize_t written = ::write(fd, next, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        next += written;
        left -= static_cast<size_t>(written);
    }
}

void writeLogLine(std::string_view source, std::string_view message) {
    std::string line;
    line.reserve(source.size() + message.size() + 3);
    line.append("[").append(source).append("] ").append(message);
    writeLine(STDERR_FILENO, line);
}

}  // namespace znhost
