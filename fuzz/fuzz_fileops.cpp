// Fuzzes the file utilities' readers on arbitrary file bytes: readAsciiMatrix for every element
// type and the growing line reader getline.
//
// readAsciiMatrix has no oracle of its own, so the types are checked against each other: the
// narrow integer types read through the same 32-bit conversions as the wide ones and keep their
// low bits, so for every element the narrow value is the wide value cut down. Elements start out
// filled with a sentinel byte whose cut-down pattern is again the sentinel, which extends the
// comparison to elements that a short file leaves untouched. Reading fewer values must give a
// prefix of reading more. Integer matrices that read whole are written back and must read back
// the same.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "fuzz/check.h"
#include "fuzz/line_reader_check.h"
#include "fuzz/scratch_dir.h"

namespace {

constexpr unsigned char kSentinel = 0xA5;
constexpr unsigned long kCounts[] = {0, 1, 3, 16};
constexpr unsigned long kMaxCount = 16;
const _DataType kUnsupported[] = {static_cast<_DataType>(0), static_cast<_DataType>(6),
                                  static_cast<_DataType>(8), static_cast<_DataType>(-1)};

size_t elementSize(_DataType type) {
    switch (type) {
        case TYPE_UCHAR:
            return 1;
        case TYPE_SHORT:
        case TYPE_USHORT:
            return 2;
        case TYPE_INT:
        case TYPE_UINT:
            return 4;
        case TYPE_DOUBLE:
            return 8;
    }
    return 8;
}

// One readAsciiMatrix call into a sentinel-filled buffer of exactly `count` elements.
struct Matrix {
    int result = 0;
    std::vector<unsigned char> bytes;

    template <typename T>
    T at(unsigned long index) const {
        T value;
        std::memcpy(&value, bytes.data() + index * sizeof(T), sizeof(T));
        return value;
    }
};

Matrix readMatrix(const std::string& path, _DataType type, unsigned long count) {
    Matrix matrix;
    matrix.bytes.assign(count * elementSize(type), kSentinel);
    matrix.result = readAsciiMatrix(path.c_str(), type, count, matrix.bytes.data());
    FUZZ_CHECK(matrix.result == 0 || matrix.result == -2, "a readable file gives 0 or -2");
    if (count == 0) FUZZ_CHECK(matrix.result == 0, "reading no values succeeds");
    return matrix;
}

void checkNarrowing(const Matrix& wideSigned, const Matrix& wideUnsigned, const Matrix& uchar,
                    const Matrix& shorts, const Matrix& ushorts, unsigned long count) {
    FUZZ_CHECK(uchar.result == wideUnsigned.result && ushorts.result == wideUnsigned.result,
               "unsigned types stop at the same value");
    FUZZ_CHECK(shorts.result == wideSigned.result, "signed types stop at the same value");
    for (unsigned long i = 0; i < count; ++i) {
        const uint32_t wide = wideUnsigned.at<uint32_t>(i);
        FUZZ_CHECK(uchar.at<uint8_t>(i) == static_cast<uint8_t>(wide), "8-bit keeps the low bits");
        FUZZ_CHECK(ushorts.at<uint16_t>(i) == static_cast<uint16_t>(wide),
                   "unsigned 16-bit keeps the low bits");
        FUZZ_CHECK(shorts.at<int16_t>(i) == static_cast<int16_t>(wideSigned.at<int32_t>(i)),
                   "signed 16-bit keeps the low bits");
    }
}

void checkPrefix(const Matrix& shorter, const Matrix& longer) {
    if (longer.result == 0) FUZZ_CHECK(shorter.result == 0, "fewer values read whole too");
    if (shorter.bytes.empty()) return;
    FUZZ_CHECK(std::memcmp(shorter.bytes.data(), longer.bytes.data(), shorter.bytes.size()) == 0,
               "reading fewer values gives a prefix");
}

void checkRoundTrip(const std::string& path, _DataType type, unsigned long count,
                    const Matrix& matrix) {
    if (matrix.result != 0 || count == 0 || type == TYPE_DOUBLE) return;
    std::vector<unsigned char> copy = matrix.bytes;
    FUZZ_CHECK(writeAsciiMatrix(path.c_str(), type, copy.data(), count, 3, false) == 0,
               "a matrix can be written");
    Matrix again = readMatrix(path, type, count);
    FUZZ_CHECK(again.result == 0 && again.bytes == matrix.bytes, "a written matrix reads back");
}

void checkMatrices(const std::string& input, const std::string& output) {
    const _DataType types[] = {TYPE_UCHAR, TYPE_SHORT, TYPE_USHORT,
                               TYPE_INT,   TYPE_UINT,  TYPE_DOUBLE};
    std::vector<Matrix> previous;
    for (unsigned long count : kCounts) {
        std::vector<Matrix> current;
        for (_DataType type : types)
            current.push_back(readMatrix(input, type, count));
        checkNarrowing(current[3], current[4], current[0], current[1], current[2], count);
        for (size_t t = 0; t < previous.size(); ++t)
            checkPrefix(previous[t], current[t]);
        for (size_t t = 0; t < current.size(); ++t)
            checkRoundTrip(output, types[t], count, current[t]);
        previous = std::move(current);
    }
    for (_DataType type : kUnsupported) {
        std::vector<unsigned char> untouched(kMaxCount * 8, kSentinel);
        FUZZ_CHECK(readAsciiMatrix(input.c_str(), type, kMaxCount, untouched.data()) == -4,
                   "an unsupported type is refused");
        FUZZ_CHECK(untouched == std::vector<unsigned char>(kMaxCount * 8, kSentinel),
                   "a refused type stores nothing");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzsupport::ScratchDir scratch;
    static const std::string input = scratch.file("input.txt");
    static const std::string output = scratch.file("output.txt");

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    fuzzsupport::writeBytes(input, bytes);

    checkMatrices(input, output);
    fuzzsupport::checkLineReader<unsigned long>(
        static_cast<int (*)(FILE*, char**, unsigned long*)>(&getline), input, bytes);
    return 0;
}
