// Fuzzes the file utilities' readers on arbitrary file bytes: readAsciiMatrix for every element
// type and the growing line reader getline.
//
// readAsciiMatrix has no oracle of its own, so the types are checked against each other: the
// narrow integer types read through the same 32-bit conversions as the wide ones and keep their
// low bits. Memory starts filled with a sentinel byte, whose cut-down pattern is again the
// sentinel, so the comparison extends to elements that a short file leaves untouched.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "fuzz/check.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace fileops;

constexpr unsigned char kSentinel = 0xA5;
constexpr unsigned long kMaxCount = 16;

// `count` values of `type` read from `path` into sentinel-filled memory. Integers read whole must
// survive being written to `output` (unless empty) and read back.
template <typename T>
std::vector<T> read(const std::string& path, _DataType type, unsigned long count, int& result,
                    const std::string& output) {
    T sentinel;
    std::memset(&sentinel, kSentinel, sizeof sentinel);
    std::vector<T> values(count, sentinel);
    result = readAsciiMatrix(path.c_str(), type, count, values.data());
    FUZZ_CHECK(result == kOk || (result == kShortRead && count > 0), "a readable file is read");
    if (result != kOk || type == TYPE_DOUBLE || output.empty()) return values;
    FUZZ_CHECK(writeAsciiMatrix(output.c_str(), type, values.data(), count, 3, false) == kOk,
               "a matrix can be written");
    int again = kOk;
    FUZZ_CHECK(read<T>(output, type, count, again, "") == values && again == kOk,
               "a written matrix reads back");
    return values;
}

// kMaxCount values of `type`, of which fewer values must read as a prefix.
template <typename T>
std::vector<T> readAll(const std::string& input, const std::string& output, _DataType type,
                       int& result) {
    const std::vector<T> all = read<T>(input, type, kMaxCount, result, output);
    for (const unsigned long count : {0ul, 1ul, 3ul}) {
        int fewerResult = kOk;
        const std::vector<T> fewer = read<T>(input, type, count, fewerResult, output);
        FUZZ_CHECK((count == 0 || std::memcmp(fewer.data(), all.data(), count * sizeof(T)) == 0) &&
                       (result != kOk || fewerResult == kOk),
                   "reading fewer values gives a prefix");
    }
    return all;
}

void checkMatrices(const std::string& input, const std::string& output) {
    int r[6];
    const auto uchars = readAll<uint8_t>(input, output, TYPE_UCHAR, r[0]);
    const auto shorts = readAll<int16_t>(input, output, TYPE_SHORT, r[1]);
    const auto ushorts = readAll<uint16_t>(input, output, TYPE_USHORT, r[2]);
    const auto ints = readAll<int32_t>(input, output, TYPE_INT, r[3]);
    const auto uints = readAll<uint32_t>(input, output, TYPE_UINT, r[4]);
    readAll<double>(input, output, TYPE_DOUBLE, r[5]);
    FUZZ_CHECK(r[0] == r[4] && r[2] == r[4] && r[1] == r[3], "narrow types stop with wide ones");
    for (unsigned long i = 0; i < kMaxCount; ++i)
        FUZZ_CHECK(uchars[i] == static_cast<uint8_t>(uints[i]) &&
                       ushorts[i] == static_cast<uint16_t>(uints[i]) &&
                       shorts[i] == static_cast<int16_t>(ints[i]),
                   "a narrow type keeps the low bits of its wide type");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const testsupport::TempDir scratch;  // one for the process: an input costs no folder
    FUZZ_CHECK(scratch.ok(), "a scratch folder");
    static const std::string input = scratch.file("input.txt");
    static const std::string output = scratch.file("output.txt");

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    testsupport::writeFile(input, bytes);
    checkMatrices(input, output);
    fuzzsupport::checkLineReader<unsigned long>(&getline, input, bytes);
    return 0;
}
