// What single parts of this library cost. Each measurement prints one line of JSON.
#ifndef SORREL_BENCH_COSTS_HPP
#define SORREL_BENCH_COSTS_HPP

#include "../clock.hpp"

#include <cstddef>
#include <functional>
#include <sorrel/sorrel.h>
#include <string>
#include <vector>

// Messages that do not pass: by the call, and by the inline check.
void measureFiltered(double milliseconds);

// A message to so many null targets, each from a library file of its own.
void measureTargets(std::size_t count, double milliseconds);

// A message to the recorder.
void measureRecorder(double milliseconds);

// Creating components, and finding one, while there are more and more.
void measureComponents(std::size_t most);

// Reading a configuration with so many components: when they are new, and again.
void measureConfiguration(std::size_t lines);

// From the close of the rewritten file until the level is in effect, in microseconds.
void measureRewrite(std::size_t count);

// Single calls of one thread, first quietly, then while a target comes and goes every 5 ms.
void measureReloads(double milliseconds);

// Nanoseconds of one call: the median of batches.
template <class Call>
double timeOfOne(double milliseconds, const Call& call) {
    constexpr int kBatch = 1024;
    std::vector<double> times;
    const double end = nanosecondsNow() + milliseconds * 1e6;
    while (times.empty() || nanosecondsNow() < end) {
        const double begin = nanosecondsNow();
        for (int i = 0; i < kBatch; ++i) {
            call(i);
        }
        times.push_back((nanosecondsNow() - begin) / kBatch);
    }
    return median(times);
}

#endif // SORREL_BENCH_COSTS_HPP
