// File utilities; the contract and its result codes are documented in fileops.h.
#include "fileops/fileops.h"

#include <dirent.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

using namespace fileops;

namespace {

// The two formats of one element type: one for a value inside a row, one for the value that
// ends it. Choosing them once keeps the per-element loop to a single formatted print.
struct RowFormats {
    const char* inRow;
    const char* rowEnd;
};

// Prints every element converted to `Printed`, the type its format expects through varargs.
// A negative print result means the stream refused the bytes (usually when its buffer was
// flushed), which is the only write failure the caller can still see before closing.
template <typename Element, typename Printed>
int printElements(FILE* file, const void* data, unsigned long count, unsigned long width,
                  RowFormats formats) {
    const Element* elements = static_cast<const Element*>(data);
    unsigned long column = 0;
    for (unsigned long i = 0; i < count; ++i) {
        const Printed value = static_cast<Printed>(elements[i]);
        const bool endsRow = ++column == width;
        if (endsRow) column = 0;
        if (std::fprintf(file, endsRow ? formats.rowEnd : formats.inRow, value) < 0) {
            return kWriteFailed;
        }
    }
    return kOk;
}

int printDecimal(FILE* file, _DataType type, const void* data, unsigned long count,
                 unsigned long width) {
    switch (type) {
        case TYPE_UCHAR:
            return printElements<unsigned char, unsigned>(file, data, count, width,
                                                          {"%u ", "%u\n"});
        case TYPE_SHORT:
            return printElements<short, int>(file, data, count, width, {"%hd ", "%hd\n"});
        case TYPE_USHORT:
            return printElements<unsigned short, unsigned>(file, data, count, width,
                                                           {"%u ", "%u\n"});
        case TYPE_INT:
            return printElements<int, int>(file, data, count, width, {"%d ", "%d\n"});
        case TYPE_UINT:
            return printElements<unsigned, unsigned>(file, data, count, width, {"%u ", "%u\n"});
        case TYPE_DOUBLE:
            return printElements<double, double>(file, data, count, width, {"%lf ", "%lf\n"});
    }
    return kBadType;
}

// Converting a short to unsigned goes through int, so its sign fills all 32 bits: a negative
// value prints as eight digits even though the format asks for four.
int printHex(FILE* file, _DataType type, const void* data, unsigned long count,
             unsigned long width) {
    switch (type) {
        case TYPE_UCHAR:
            return printElements<unsigned char, unsigned>(file, data, count, width,
                                                          {"%02X ", "%02X\n"});
        case TYPE_SHORT:
            return printElements<short, unsigned>(file, data, count, width, {"%04X ", "%04X\n"});
        case TYPE_USHORT:
            return printElements<unsigned short, unsigned>(file, data, count, width,
                                                           {"%04X ", "%04X\n"});
        case TYPE_INT:
            return printElements<int, unsigned>(file, data, count, width, {"%08X ", "%08X\n"});
        case TYPE_UINT:
            return printElements<unsigned, unsigned>(file, data, count, width, {"%08X ", "%08X\n"});
        case TYPE_DOUBLE:
            break;
    }
    return kBadType;
}

bool isDecimalType(_DataType type) {
    switch (type) {
        case TYPE_UCHAR:
        case TYPE_SHORT:
        case TYPE_USHORT:
        case TYPE_INT:
        case TYPE_UINT:
        case TYPE_DOUBLE:
            return true;
    }
    return false;
}

bool isHexType(_DataType type) {
    return type != TYPE_DOUBLE && isDecimalType(type);
}

using Printer = int (*)(FILE*, _DataType, const void*, unsigned long, unsigned long);

// Shared body of both matrix writers. The file is opened before anything is checked, so an
// unsupported type or a zero width still creates (or, without append, empties) the file.
int writeMatrix(const char* fileName, _DataType type, const void* data, unsigned long count,
                unsigned long width, bool append, bool (*supported)(_DataType), Printer print) {
    FILE* file = std::fopen(fileName, append ? "a+" : "w");
    if (file == nullptr) return kOpenFailed;
    int result = kBadType;
    if (supported(type) && (width > 0 || count == 0)) {
        result = print(file, type, data, count, width);
    }
    std::fclose(file);
    return result;
}

// Scans into `Scanned` and narrows to `Element`; for the 8- and 16-bit types the narrowing keeps
// the low bits, which is the documented behaviour for values out of range.
template <typename Element, typename Scanned>
unsigned long scanElements(FILE* file, void* data, unsigned long count, const char* format) {
    Element* elements = static_cast<Element*>(data);
    for (unsigned long i = 0; i < count; ++i) {
        Scanned value;
        if (std::fscanf(file, format, &value) != 1) return i;
        elements[i] = static_cast<Element>(value);
    }
    return count;
}

unsigned long scanDecimal(FILE* file, _DataType type, unsigned long count, void* data) {
    switch (type) {
        case TYPE_UCHAR:
            return scanElements<unsigned char, unsigned>(file, data, count, "%u");
        case TYPE_SHORT:
            return scanElements<short, int>(file, data, count, "%d");
        case TYPE_USHORT:
            return scanElements<unsigned short, unsigned>(file, data, count, "%u");
        case TYPE_INT:
            return scanElements<int, int>(file, data, count, "%d");
        case TYPE_UINT:
            return scanElements<unsigned, unsigned>(file, data, count, "%u");
        case TYPE_DOUBLE:
            return scanElements<double, double>(file, data, count, "%lf");
    }
    return 0;
}

// Line reader state for one getline call.
struct LineBuffer {
    char** text;
    unsigned long* size;
    bool ownedByCall;
};

constexpr unsigned long kFirstLineSize = 120;
constexpr unsigned long kSmallCallerBuffer = 60;

// A failed realloc leaves the old buffer in place, still the caller's or ours to free.
bool resizeBuffer(LineBuffer& buffer, unsigned long newSize) {
    void* grown = std::realloc(*buffer.text, newSize);
    if (grown != nullptr) {
        *buffer.text = static_cast<char*>(grown);
        *buffer.size = newSize;
    }
    return grown != nullptr;
}

// Settles who owns the buffer and makes sure it has room for a useful first read.
bool prepareBuffer(LineBuffer& buffer) {
    if (*buffer.text == nullptr || *buffer.size == 0) {
        // The caller's old pointer, if any, is deliberately dropped: it is neither ours to free
        // nor known to be large enough.
        *buffer.text = nullptr;
        *buffer.size = 0;
        buffer.ownedByCall = true;
        return resizeBuffer(buffer, kFirstLineSize);
    }
    if (*buffer.size <= kSmallCallerBuffer) return resizeBuffer(buffer, kFirstLineSize);
    return true;
}

bool growBuffer(LineBuffer& buffer) {
    const unsigned long size = *buffer.size;
    if (size > ULONG_MAX / 2) return false;
    return resizeBuffer(buffer, size > 59 ? size * 2 : kFirstLineSize);
}

int failLine(LineBuffer& buffer) {
    if (buffer.ownedByCall) {
        std::free(*buffer.text);
        *buffer.text = nullptr;
        *buffer.size = 0;
    }
    return -1;
}

// Reads pieces with fgets until a line feed, end of file or failure. fgets reads at most
// room - 1 bytes and always terminates, so after a full buffer the next piece starts on the
// terminating zero byte, one before the old end.
int readLine(FILE* stream, LineBuffer& buffer) {
    unsigned long position = 0;
    for (;;) {
        char* piece = *buffer.text + position;
        const unsigned long room = *buffer.size - position;
        const int readRoom = room > INT_MAX ? INT_MAX : static_cast<int>(room);
        if (std::fgets(piece, readRoom, stream) == nullptr) {
            if (std::feof(stream) && position != 0) return static_cast<int>(position);
            return failLine(buffer);
        }
        if (std::feof(stream)) return static_cast<int>(position + std::strlen(piece));
        // memchr rather than strlen: a zero byte inside the line must not hide its line feed.
        const void* lineFeed = std::memchr(piece, '\n', static_cast<size_t>(readRoom) - 1);
        if (lineFeed != nullptr) {
            return static_cast<int>(static_cast<const char*>(lineFeed) - *buffer.text + 1);
        }
        const unsigned long oldSize = *buffer.size;
        if (!growBuffer(buffer)) return failLine(buffer);
        position = oldSize - 1;
    }
}

bool isDotEntry(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool matchesOne(char nameChar, char maskChar) {
    return maskChar == '?' ? nameChar != '.' : maskChar == nameChar;
}

const char* skipStars(const char* mask) {
    while (*mask == '*')
        ++mask;
    return mask;
}

}  // namespace

int readAsciiMatrix(const char* fileName, _DataType type, unsigned long count, void* data) {
    FILE* file = std::fopen(fileName, "r");
    if (file == nullptr) return kOpenFailed;
    if (!isDecimalType(type)) {
        std::fclose(file);
        return kBadType;
    }
    const unsigned long stored = scanDecimal(file, type, count, data);
    std::fclose(file);
    return stored == count ? kOk : kShortRead;
}

int writeAsciiMatrix(const char* fileName, _DataType type, void* data, unsigned long count,
                     unsigned long width, bool append) {
    return writeMatrix(fileName, type, data, count, width, append, isDecimalType, printDecimal);
}

int writeAsciiMatrixHex(const char* fileName, _DataType type, void* data, unsigned long count,
                        unsigned long width, bool append) {
    return writeMatrix(fileName, type, data, count, width, append, isHexType, printHex);
}

int readBinary(const char* fileName, unsigned char* data, unsigned long size) {
    FILE* file = std::fopen(fileName, "rb");
    if (file == nullptr) return kOpenFailed;
    const size_t got = std::fread(data, 1, size, file);
    std::fclose(file);
    return got < size ? kShortRead : kOk;
}

int writeBinary(const char* fileName, unsigned char* data, unsigned long size, bool append) {
    FILE* file = std::fopen(fileName, append ? "a+b" : "wb");
    if (file == nullptr) return kOpenFailed;
    const size_t put = std::fwrite(data, 1, size, file);
    std::fclose(file);
    return put < size ? kWriteFailed : kOk;
}

int getline(FILE* stream, char** lineptr, unsigned long* n) {
    if (stream == nullptr || lineptr == nullptr || n == nullptr) {
        errno = EINVAL;
        return -1;
    }
    LineBuffer buffer{lineptr, n, false};
    if (!prepareBuffer(buffer)) return failLine(buffer);
    return readLine(stream, buffer);
}

// Greedy matching with one restart point, the position after the last run of stars: a later
// star always makes earlier choices irrelevant, so nothing older needs to be remembered.
bool matchMask(const char* name, const char* mask) {
    if (name == nullptr || mask == nullptr) return false;
    const char* restartMask = nullptr;
    const char* restartName = nullptr;
    while (*name != '\0') {
        if (*mask == '*') {
            mask = skipStars(mask);
            if (*mask == '\0') return true;
            restartMask = mask;
            restartName = name;
        } else if (matchesOne(*name, *mask)) {
            ++name;
            ++mask;
        } else if (restartMask == nullptr) {
            return false;
        } else {
            mask = restartMask;
            name = ++restartName;
        }
    }
    return *skipStars(mask) == '\0';
}

int listFilesInDir(const char* dirPath, const char* mask, bool filesOnly, bool fullPath,
                   std::vector<std::string>& files) {
    if (dirPath == nullptr) return kDirOpenFailed;
    DIR* dir = opendir(dirPath);
    if (dir == nullptr) return kDirOpenFailed;
    // A read error ends the listing like its normal end; what was found so far stays listed.
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (!matchMask(name, mask)) continue;
        // Only the type the directory read delivers counts; DT_UNKNOWN entries are listed.
        if (filesOnly && entry->d_type == DT_DIR) continue;
        if (isDotEntry(name)) continue;
        files.push_back(fullPath ? std::string(dirPath) + "/" + name : std::string(name));
    }
    closedir(dir);
    return kOk;
}
