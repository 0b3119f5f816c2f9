#include "bench/table.h"

#include <cmath>
#include <cstdio>

namespace bench {

namespace {

constexpr const char* kRowFormat = "%-28s %-20s %10s %-6s %-28s %6s %-9s %s\n";

std::string targetText(const Target& target, const std::string& unit) {
    char text[48];
    switch (target.kind) {
        case Target::Kind::None:
            return "";
        case Target::Kind::RatioAtLeast:
            std::snprintf(text, sizeof text, ">= %.2f", target.bound);
            return text;
        case Target::Kind::RatioAtMost:
            std::snprintf(text, sizeof text, "<= %.2f", target.bound);
            return text;
        case Target::Kind::ValueBelow:
            return "< " + figureText(target.bound) + " " + unit;
    }
    return "";
}

bool isMet(const Target& target, double value, double ratio) {
    switch (target.kind) {
        case Target::Kind::RatioAtLeast:
            return ratio >= target.bound;
        case Target::Kind::RatioAtMost:
            return ratio <= target.bound;
        case Target::Kind::ValueBelow:
            return value < target.bound;
        case Target::Kind::None:
            break;
    }
    return false;
}

std::string metText(const Row& row) {
    if (row.target.kind == Target::Kind::None) return "";
    const double judged = row.target.kind == Target::Kind::ValueBelow ? row.value : row.ratio;
    if (std::isnan(judged)) return "n/a";
    return isMet(row.target, row.value, row.ratio) ? "yes" : "NO";
}

}  // namespace

Target ratioAtLeast(double bound) {
    return {Target::Kind::RatioAtLeast, bound};
}

Target ratioAtMost(double bound) {
    return {Target::Kind::RatioAtMost, bound};
}

Target valueBelow(double bound) {
    return {Target::Kind::ValueBelow, bound};
}

std::string figureText(double value) {
    if (std::isnan(value)) return "n/a";
    char text[32];
    const double magnitude = std::fabs(value);
    if (magnitude >= 1000.0)
        std::snprintf(text, sizeof text, "%.0f", value);
    else if (magnitude >= 100.0)
        std::snprintf(text, sizeof text, "%.1f", value);
    else if (magnitude >= 10.0)
        std::snprintf(text, sizeof text, "%.2f", value);
    else
        std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

void printHeader() {
    std::printf(kRowFormat, "benchmark", "subject", "value", "unit", "detail", "ratio", "target",
                "met");
    std::printf("%s\n", std::string(120, '-').c_str());
}

void printRow(const Row& row) {
    const std::string ratio = std::isnan(row.ratio) ? "" : figureText(row.ratio);
    std::printf(kRowFormat, row.benchmark.c_str(), row.subject.c_str(),
                figureText(row.value).c_str(), row.unit.c_str(), row.detail.c_str(), ratio.c_str(),
                targetText(row.target, row.unit).c_str(), metText(row).c_str());
    std::fflush(stdout);
}

}  // namespace bench
