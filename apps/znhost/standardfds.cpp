#include "apps/znhost/standardfds.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace znhost {

namespace {

constexpr int kStandardDescriptors[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};

bool isClosed(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF;
}

}  // namespace

bool openClosedStandardDescriptors() {
    for (int descriptor : kStandardDescriptors) {
        if (!isClosed(descriptor)) continue;
        // The lower ones are open by now, and open() takes the lowest free number: this one.
        if (::open("/dev/null", O_RDWR) < 0) return false;
    }
    return true;
}

}  // namespace znhost
