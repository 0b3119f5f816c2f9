#include "settings/textfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kChunkBytes = 4096;

int openForReading(const std::string& path) {
    int descriptor;
    do {
        descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

bool readAll(int descriptor, std::string& bytes) {
    char chunk[kChunkBytes];
    for (;;) {
        const ssize_t got = ::read(descriptor, chunk, sizeof chunk);
        if (got > 0) {
            bytes.append(chunk, static_cast<std::size_t>(got));
        } else if (got == 0) {
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
}

std::string withReason(const std::string& path, const char* what) {
    return path + ": " + what + ": " + std::strerror(errno);
}

}  // namespace

TextFileRead readTextFile(const std::string& path, std::string& bytes, std::string& error) {
    bytes.clear();
    const int descriptor = openForReading(path);
    if (descriptor < 0) {
        const bool missing = errno == ENOENT;
        error = withReason(path, "cannot open");
        return missing ? TextFileRead::Missing : TextFileRead::Failed;
    }
    TextFileRead result = TextFileRead::Failed;
    struct stat info;
    if (::fstat(descriptor, &info) != 0) {
        error = withReason(path, "cannot read");
    } else if (!S_ISREG(info.st_mode)) {
        error = path + ": not a regular file";
    } else if (!readAll(descriptor, bytes)) {
        error = withReason(path, "cannot read");
    } else {
        result = TextFileRead::Read;
    }
    ::close(descriptor);
    return result;
}
