// Components: creation and look-up while their number grows.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>

namespace {

constexpr std::size_t kMostTimed = 1000; // creations at the end of each stage
constexpr std::size_t kStride = 7919;    // a prime: look-ups jump about

std::string nameOf(std::size_t number) {
    return "component-" + std::to_string(number);
}

void create(const std::string& name) {
    sorrel_create_component(name.c_str(), SR_INFO, "64=INFO");
}

// Goes on from `from` to `to` components; the median of the last ones.
double growTo(std::size_t from, std::size_t to) {
    std::vector<double> times;
    for (std::size_t i = from; i < to; ++i) {
        const std::string name = nameOf(i);
        const double begin = nanosecondsNow();
        create(name);
        if (i + kMostTimed >= to) {
            times.push_back(nanosecondsNow() - begin);
        }
    }
    return median(times);
}

double timeOfLookUp(std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < kMostTimed; ++i) {
        names.push_back(nameOf(i * kStride % count));
    }
    std::size_t next = 0;
    return timeOfOne(20, [&](int) {
        if (sorrel::sorrel_get_component_by_name(names[next]) == nullptr) {
            fprintf(stderr, "%s is lost\n", names[next].c_str());
        }
        next = (next + 1) % names.size();
    });
}

} // namespace

void measureComponents(std::size_t most) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_NULL_TARGET "\n");
    create("first"); // builds the logger
    const char* separator = "{\"components\": [";
    std::size_t count = 0;
    for (std::size_t stage = 1; stage <= most; stage *= 10) {
        const double creation = growTo(count, stage);
        count = stage;
        printf("%s{\"count\": %zu, \"creation\": %.0f, \"lookup\": %.1f}", separator, count, creation,
               timeOfLookUp(count));
        separator = ", ";
    }
    printf("]}\n");
}
