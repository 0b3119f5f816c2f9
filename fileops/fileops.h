// File utilities: number matrices as decimal or hexadecimal text, raw binary blocks, a line
// reader that grows its own buffer, and directory listing by "*"/"?" file-name masks.
//
// Every function that takes a file name opens and closes the file itself (exactly once on every
// path after a successful open) and reports its outcome as an integer; nothing throws.
//
// Result codes:
//    0  success
//   -1  the file could not be opened
//   -2  fewer values or bytes than asked for could be read
//   -3  writing failed
//   -4  unsupported element type (or a zero width, see below)
//   -5  the directory could not be opened
//
// Matrix text format: each value is followed by "\n" when its 1-based position is a multiple of
// `width`, else by one space; reading takes values separated by any white space, decimal only.
//
// Settled points:
// - `_DataType` has the fixed underlying type int, so any integer cast to it is a valid value
//   that the matrix functions reject with -4 rather than undefined behaviour.
// - Writing with `width` 0 and `count` above 0 opens (and so creates or empties) the file, checks
//   the type, then returns -4 without writing anything; with `count` 0 any width succeeds.
// - Reading types 1 to 3 stores the low 8 or 16 bits of the 32-bit value read (300 as type 1
//   becomes 44); a short file returns -2, keeping the values read and leaving the rest untouched.
// - `getline` also answers a null stream with EINVAL and -1, touching neither buffer nor size.
// - `matchMask` returns false when `name` or `mask` is null; `listFilesInDir` returns -5 for a
//   null `dirPath`.
// - `matchMask` backtracks only to the last "*", so it takes at most length(name) *
//   length(mask) steps, never exponential time.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// The result codes listed above, by name.
namespace fileops {
constexpr int kOk = 0;
constexpr int kOpenFailed = -1;
constexpr int kShortRead = -2;
constexpr int kWriteFailed = -3;
constexpr int kBadType = -4;
constexpr int kDirOpenFailed = -5;
}  // namespace fileops

enum _DataType : int {
    TYPE_UCHAR = 1,   // unsigned 8-bit
    TYPE_SHORT = 2,   // signed 16-bit
    TYPE_USHORT = 3,  // unsigned 16-bit
    TYPE_INT = 4,     // signed 32-bit
    TYPE_UINT = 5,    // unsigned 32-bit
    TYPE_DOUBLE = 9,  // 64-bit floating point; decimal text only
};

// Reads `count` values of `type` from the text file into `data`. Returns 0, -1, -2 or -4.
int readAsciiMatrix(const char* fileName, _DataType type, unsigned long count, void* data);

// Writes `count` elements as decimal text, `width` per line; appends ("a+") or replaces ("w").
// Returns 0, -1, -3 or -4.
int writeAsciiMatrix(const char* fileName, _DataType type, void* data, unsigned long count,
                     unsigned long width, bool append);

// As writeAsciiMatrix with upper-case zero-padded hexadecimal; integer types only. A signed
// 16-bit element is widened to 32 bits first, so -1 prints as FFFFFFFF.
int writeAsciiMatrixHex(const char* fileName, _DataType type, void* data, unsigned long count,
                        unsigned long width, bool append);

// Reads `size` bytes in one block. Returns 0, -1 or -2 (file shorter; the bytes read are kept).
int readBinary(const char* fileName, unsigned char* data, unsigned long size);

// Writes `size` bytes in one block, appending ("a+b") or replacing ("wb"). Returns 0, -1 or -3.
int writeBinary(const char* fileName, unsigned char* data, unsigned long size, bool append);

// Reads one line, line feed included, into `*lineptr`, which it allocates or grows; the text is
// always zero-terminated and the result is its length in bytes, or -1.
// Buffer rules: a null `*lineptr` or a zero `*n` makes the call allocate a buffer of its own
// (any old pointer is dropped, neither used nor freed); a caller's buffer of 60 bytes or less is
// reallocated to 120; a larger one is used as it is. A full buffer doubles. On failure (end of
// file with nothing read, read error, out of memory) a buffer allocated by this call is freed and
// `*lineptr`/`*n` reset to null/0, while a caller's buffer stays with its current size. Null
// `lineptr` or `n` sets errno to EINVAL. The caller frees the buffer.
// The parameter order differs from the POSIX line reader, so the two overload without clashing.
int getline(FILE* stream, char** lineptr, unsigned long* n);

// True when the whole of `name` matches the whole of `mask`: "*" matches any run (dots
// included), "?" any one character except a dot, anything else only itself, case-sensitively.
bool matchMask(const char* name, const char* mask);

// Appends the entries of `dirPath` whose names match `mask`, in the order the system delivers
// them, never "." or "..". `filesOnly` skips entries the directory read marks as directories;
// `fullPath` prepends `dirPath` and "/" (always added). Not recursive. Returns 0 or -5.
int listFilesInDir(const char* dirPath, const char* mask, bool filesOnly, bool fullPath,
                   std::vector<std::string>& files);
