// One write loop for everything znhost writes to a descriptor: output lines and data files.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace znhost {

// Writes all of `text`, going on after short and interrupted writes. False, with errno from the
// failed write, when a write fails.
inline bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

}  // namespace znhost
