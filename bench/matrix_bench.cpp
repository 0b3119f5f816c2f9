// Matrix text files: writeAsciiMatrix and readAsciiMatrix of kValues values against a plain
// fprintf / fscanf loop that writes and reads the same text, for TYPE_USHORT and TYPE_DOUBLE.
// Prints table rows in MB/s of file text; each ratio is fileops' rate over the loop's. Never
// asserts.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/stats.h"
#include "bench/table.h"
#include "fileops/fileops.h"
#include "tests/support/temp_dir.h"

namespace bench {
namespace {

constexpr unsigned long kValues = 1000000;
constexpr unsigned long kWidth = 1000;
constexpr int kRepetitions = 7;
// Within 1.5 times the loop's time, i.e. at least 1 / 1.5 of its rate.
constexpr double kRateTarget = 1.0 / 1.5;

// What the loop needs to know of an element type: its text formats and how to scan it.
template <typename Element>
struct Formats;

template <>
struct Formats<unsigned short> {
    static constexpr _DataType kType = TYPE_USHORT;
    static constexpr const char* kName = "ushort";
    static int print(FILE* file, unsigned short value, bool endsRow) {
        return std::fprintf(file, endsRow ? "%u\n" : "%u ", static_cast<unsigned>(value));
    }
    static bool scan(FILE* file, unsigned short& value) {
        unsigned scanned = 0;
        if (std::fscanf(file, "%u", &scanned) != 1) return false;
        value = static_cast<unsigned short>(scanned);
        return true;
    }
    static unsigned short sample(unsigned long i) {
        return static_cast<unsigned short>((i * 2654435761u) >> 16);
    }
};

template <>
struct Formats<double> {
    static constexpr _DataType kType = TYPE_DOUBLE;
    static constexpr const char* kName = "double";
    static int print(FILE* file, double value, bool endsRow) {
        return std::fprintf(file, endsRow ? "%lf\n" : "%lf ", value);
    }
    static bool scan(FILE* file, double& value) { return std::fscanf(file, "%lf", &value) == 1; }
    static double sample(unsigned long i) {
        return static_cast<double>((i * 2654435761u) % 100000) / 7.0;
    }
};

template <typename Element>
bool writeLoop(const std::string& path, const std::vector<Element>& values) {
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    bool written = true;
    for (unsigned long i = 0; i < values.size() && written; ++i)
        written = Formats<Element>::print(file, values[i], (i + 1) % kWidth == 0) >= 0;
    return std::fclose(file) == 0 && written;
}

template <typename Element>
bool readLoop(const std::string& path, std::vector<Element>& values) {
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    bool read = true;
    for (unsigned long i = 0; i < values.size() && read; ++i)
        read = Formats<Element>::scan(file, values[i]);
    std::fclose(file);
    return read;
}

double fileMegabytes(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<double>(info.st_size) / 1e6 : kNoFigure;
}

void printRates(const std::string& benchmark, double megabytes, double oursSeconds,
                double loopSeconds, bool ok) {
    const std::string detail = ok ? figureText(megabytes) + " MB of text" : "an I/O call failed";
    const double ours = ok ? megabytes / oursSeconds : kNoFigure;
    const double loop = ok ? megabytes / loopSeconds : kNoFigure;
    printRow(Row{benchmark, "fileops", ours, "MB/s", detail});
    Row row{benchmark, "stdio loop", loop, "MB/s", "fprintf / fscanf"};
    row.ratio = ours / loop;
    row.target = ratioAtLeast(kRateTarget);
    printRow(row);
}

template <typename Element>
void measure(const testsupport::TempDir& dir) {
    using F = Formats<Element>;
    std::vector<Element> values(kValues), readBack(kValues);
    for (unsigned long i = 0; i < kValues; ++i)
        values[i] = F::sample(i);
    const std::string ours = dir.file(std::string("fileops-") + F::kName + ".txt");
    const std::string loop = dir.file(std::string("loop-") + F::kName + ".txt");
    bool ok = true;

    const std::vector<double> write = medianSeconds(
        kRepetitions, {[&] {
                           ok &= writeAsciiMatrix(ours.c_str(), F::kType, values.data(), kValues,
                                                  kWidth, false) == fileops::kOk;
                       },
                       [&] { ok &= writeLoop(loop, values); }});
    const double megabytes = fileMegabytes(ours);
    printRates(std::string("matrix write, ") + F::kName, megabytes, write[0], write[1], ok);

    const std::vector<double> read =
        medianSeconds(kRepetitions, {[&] {
                                         ok &= readAsciiMatrix(ours.c_str(), F::kType, kValues,
                                                               readBack.data()) == fileops::kOk;
                                     },
                                     [&] { ok &= readLoop(loop, readBack); }});
    printRates(std::string("matrix read, ") + F::kName, megabytes, read[0], read[1], ok);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--header") == 0) bench::printHeader();
    const testsupport::TempDir dir;
    bench::measure<unsigned short>(dir);
    bench::measure<double>(dir);
    return 0;
}
