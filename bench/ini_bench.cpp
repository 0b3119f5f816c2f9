// INI store against inih on one generated file of kSections x kKeysPerSection entries:
//   load      IniFile::load against inih's INIReader (parse and keep every value in a map) and
//             against bare ini_parse (a handler that only counts), both reading the same file;
//   look-up   every key once, IniFile::get against INIReader::Get.
// Prints table rows; ratios are IniFile's time over the reference's. Never asserts.
#include <ini.h>

#include <INIReader.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/stats.h"
#include "bench/table.h"
#include "settings/inifile.h"
#include "tests/support/temp_dir.h"

namespace bench {
namespace {

constexpr int kSections = 100;
constexpr int kKeysPerSection = 1000;
constexpr int kRepetitions = 7;
constexpr double kLoadTarget = 3.0;

struct Entry {
    std::string section;
    std::string key;
};

std::vector<Entry> entries() {
    std::vector<Entry> all;
    char section[32], key[32];
    for (int s = 0; s < kSections; ++s) {
        std::snprintf(section, sizeof section, "section%03d", s);
        for (int k = 0; k < kKeysPerSection; ++k) {
            std::snprintf(key, sizeof key, "key%04d", k);
            all.push_back({section, key});
        }
    }
    return all;
}

bool writeIniFile(const std::string& path, const std::vector<Entry>& all) {
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    std::string section;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].section != section) {
            section = all[i].section;
            std::fprintf(file, "[%s]\n", section.c_str());
        }
        std::fprintf(file, "%s=value %zu of the benchmark\n", all[i].key.c_str(), i);
    }
    return std::fclose(file) == 0;
}

int countEntry(void* user, const char*, const char*, const char*) {
    ++*static_cast<size_t*>(user);
    return 1;
}

// Keeps the looked-up values observable, so no call can be dropped as unused.
volatile size_t gChecksum = 0;

struct Reference {
    const char* name;
    double seconds;
    const char* detail;
    Target target;
};

void printTimes(const std::string& benchmark, double oursSeconds,
                const std::vector<Reference>& references) {
    printRow(Row{benchmark, "IniFile", oursSeconds * 1e3, "ms"});
    for (const Reference& reference : references) {
        Row row{benchmark, reference.name, reference.seconds * 1e3, "ms", reference.detail};
        row.ratio = oursSeconds / reference.seconds;
        row.target = reference.target;
        printRow(row);
    }
}

void lookUpAll(const IniFile& ini, const std::vector<Entry>& all) {
    for (const Entry& entry : all)
        gChecksum = gChecksum + ini.get(entry.section.c_str(), entry.key.c_str(), "").size();
}

void lookUpAll(const INIReader& reader, const std::vector<Entry>& all) {
    for (const Entry& entry : all)
        gChecksum = gChecksum + reader.Get(entry.section, entry.key, "").size();
}

void run(bool header) {
    const testsupport::TempDir dir;
    const std::string path = dir.file("bench.ini");
    const std::vector<Entry> all = entries();
    if (header) printHeader();
    const std::string benchmark = "INI, " + std::to_string(all.size() / 1000) + "k entries";
    if (dir.path().empty() || !writeIniFile(path, all)) {
        printRow(Row{benchmark, "IniFile", kNoFigure, "ms", "cannot write the INI file"});
        return;
    }

    IniFile ini(path.c_str(), "=");
    INIReader reader(path);
    size_t parsed = 0;
    const std::vector<double> load =
        medianSeconds(kRepetitions, {[&] { ini.load(nullptr); }, [&] { reader = INIReader(path); },
                                     [&] { ini_parse(path.c_str(), countEntry, &parsed); }});
    printTimes(benchmark + ", load", load[0],
               {{"inih INIReader", load[1], "parse + map", ratioAtMost(kLoadTarget)},
                {"inih ini_parse", load[2], "parse only, no store", Target{}}});

    const std::vector<double> lookUp = medianSeconds(
        kRepetitions, {[&] { lookUpAll(ini, all); }, [&] { lookUpAll(reader, all); }});
    printTimes(benchmark + ", look-up", lookUp[0],
               {{"inih INIReader", lookUp[1], "every key once", Target{}}});
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::run(argc > 1 && std::strcmp(argv[1], "--header") == 0);
    return 0;
}
