// A data file that appears whole or not at all, beneath the data folder.
//
// Acquisition file names come from remote clients, so open() resolves the file's folder beneath
// the data folder with openat2(RESOLVE_BENEATH): no link and no ".." leads out of it. A name that
// exists as anything but a regular file (a link, a FIFO, a device, a folder) is refused at once.
// Frames go to a hidden temporary file beside the target (".NAME.partial-PID-N"); commit() syncs,
// closes and renames it over the target, and every failure, like destruction without commit(),
// removes it, so a reader never sees a file cut short. Choice: on a kernel without openat2
// (before Linux 5.6) every open fails with ENOSYS.
// Results: false with `error` set to the failing step and the system's reason ("write: No space
// left on device").
#pragma once

#include <string>
#include <string_view>

namespace znhost {

class DataFile {
public:
    DataFile() = default;
    ~DataFile();
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;

    // `file` is relative to `dataDir`.
    bool open(const std::string& dataDir, const std::string& file, std::string& error);
    bool append(std::string_view text, std::string& error);
    bool commit(std::string& error);

private:
    bool fail(const char* step, std::string& error);
    bool createTemporary(std::string& error);
    void discard();

    int mFolder = -1;
    int mFd = -1;
    std::string mName;
    std::string mTemporary;
};

}  // namespace znhost
