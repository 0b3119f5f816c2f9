// The one table every benchmark program prints into: fixed-width columns, one row per figure.
// A row's ratio is "ours ÷ this reference" on the figure in its value column, taken within one
// run; its target, when it has one, bounds either that ratio or the value itself.
#pragma once

#include <limits>
#include <string>
#include <utility>

namespace bench {

constexpr double kNoFigure = std::numeric_limits<double>::quiet_NaN();

struct Target {
    enum class Kind { None, RatioAtLeast, RatioAtMost, ValueBelow };
    Kind kind = Kind::None;
    double bound = 0.0;
};

struct Row {
    Row(std::string benchmark, std::string subject, double value, std::string unit,
        std::string detail = "")
        : benchmark(std::move(benchmark)),
          subject(std::move(subject)),
          value(value),
          unit(std::move(unit)),
          detail(std::move(detail)) {}

    std::string benchmark;
    std::string subject;
    double value = kNoFigure;
    std::string unit;
    std::string detail;
    double ratio = kNoFigure;
    Target target;
};

Target ratioAtLeast(double bound);
Target ratioAtMost(double bound);
Target valueBelow(double bound);

void printHeader();
void printRow(const Row& row);

// Text for a figure: thousands without decimals, smaller numbers with three significant digits,
// "n/a" for NaN.
std::string figureText(double value);

}  // namespace bench
