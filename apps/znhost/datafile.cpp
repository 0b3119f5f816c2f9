#include "apps/znhost/datafile.h"

#include "apps/znhost/writeall.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace znhost {

namespace {

constexpr mode_t kFileMode = 0644;
constexpr int kTemporaryAttempts = 100;

std::atomic<unsigned> gTemporaryCount{0};

// glibc has no wrapper for openat2 yet.
int openBeneath(int folder, const std::string& path, unsigned long long flags) {
    open_how how{};
    how.flags = flags;
    how.resolve = RESOLVE_BENEATH;
    return static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how));
}

void closeQuietly(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

}  // namespace

DataFile::~DataFile() {
    discard();
    closeQuietly(mFolder);
}

bool DataFile::fail(const char* step, std::string& error) {
    error = std::string(step) + ": " + std::strerror(errno);
    discard();
    return false;
}

bool DataFile::open(const std::string& dataDir, const std::string& file, std::string& error) {
    const size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    mName = slash == std::string::npos ? file : file.substr(slash + 1);
    int data = ::open(dataDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (data < 0) return fail("open the data folder", error);
    mFolder = openBeneath(data, folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    closeQuietly(data);
    if (mFolder < 0) return fail("open the folder beneath the data folder", error);
    struct stat existing;
    if (::fstatat(mFolder, mName.empty() ? "." : mName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) ==
            0 &&
        !S_ISREG(existing.st_mode)) {
        error = "the name exists and is not a regular file";
        return false;
    }
    return createTemporary(error);
}

bool DataFile::createTemporary(std::string& error) {
    for (int attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
        mTemporary = "." + mName + ".partial-" + std::to_string(::getpid()) + "-" +
                     std::to_string(gTemporaryCount++);
        mFd = ::openat(mFolder, mTemporary.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
        if (mFd >= 0) return true;
        if (errno != EEXIST) break;
    }
    mTemporary.clear();
    return fail("create the temporary file", error);
}

bool DataFile::append(std::string_view text, std::string& error) {
    return writeAll(mFd, text) || fail("write", error);
}

// Some file systems report a full disk only when the data reaches it, at the sync or the close.
bool DataFile::commit(std::string& error) {
    if (::fdatasync(mFd) != 0) return fail("sync", error);
    const int fd = mFd;
    mFd = -1;
    if (::close(fd) != 0) return fail("close", error);
    if (::renameat(mFolder, mTemporary.c_str(), mFolder, mName.c_str()) != 0)
        return fail("rename", error);
    mTemporary.clear();
    return true;
}

void DataFile::discard() {
    closeQuietly(mFd);
    if (!mTemporary.empty()) ::unlinkat(mFolder, mTemporary.c_str(), 0);
    mTemporary.clear();
}

}  // namespace znhost
