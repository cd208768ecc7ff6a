// Nanoseconds, and what is left of many of them.
#ifndef SORREL_BENCH_CLOCK_HPP
#define SORREL_BENCH_CLOCK_HPP

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <vector>

inline double nanosecondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The value below which this share of all values lies; the values must be sorted.
inline double quantile(const std::vector<double>& sorted, double share) {
    const double last = static_cast<double>(sorted.size() - 1);
    return sorted[static_cast<std::size_t>(share * last)];
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return quantile(values, 0.5);
}

#endif // SORREL_BENCH_CLOCK_HPP
