// Order statistics of benchmark samples. Every function takes its samples by value, sorts its
// copy, and returns NaN for an empty sample set, which the table prints as "n/a".
#pragma once

#include <functional>
#include <vector>

namespace bench {

double median(std::vector<double> samples);

// Nearest-rank percentile: the smallest sample that at least `fraction` of the samples do not
// exceed (fraction 0.99 gives p99).
double percentile(std::vector<double> samples, double fraction);

double maximum(const std::vector<double>& samples);

// Seconds on the monotonic clock; only differences are meaningful.
double monotonicSeconds();

// Runs every body once per repetition, in turn, so that drift over time spreads evenly over
// them, and returns each body's median duration in seconds.
std::vector<double> medianSeconds(int repetitions,
                                  const std::vector<std::function<void()>>& bodies);

}  // namespace bench
