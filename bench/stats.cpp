#include "bench/stats.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace bench {

namespace {

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

}  // namespace

double median(std::vector<double> samples) {
    if (samples.empty()) return kNoValue;
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    if (samples.size() % 2 == 1) return samples[middle];
    return (samples[middle - 1] + samples[middle]) / 2.0;
}

double percentile(std::vector<double> samples, double fraction) {
    if (samples.empty()) return kNoValue;
    std::sort(samples.begin(), samples.end());
    const double rank = std::ceil(fraction * static_cast<double>(samples.size()));
    const size_t index = rank < 1.0 ? 0 : static_cast<size_t>(rank) - 1;
    return samples[std::min(index, samples.size() - 1)];
}

double maximum(const std::vector<double>& samples) {
    if (samples.empty()) return kNoValue;
    return *std::max_element(samples.begin(), samples.end());
}

double monotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::vector<double> medianSeconds(int repetitions,
                                  const std::vector<std::function<void()>>& bodies) {
    std::vector<std::vector<double>> durations(bodies.size());
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        for (size_t i = 0; i < bodies.size(); ++i) {
            const double start = monotonicSeconds();
            bodies[i]();
            durations[i].push_back(monotonicSeconds() - start);
        }
    }
    std::vector<double> medians;
    for (const std::vector<double>& samples : durations)
        medians.push_back(median(samples));
    return medians;
}

}  // namespace bench
