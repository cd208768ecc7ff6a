// Configurations of many lines.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>

namespace {

std::string linesOfComponents(std::size_t count) {
    std::string lines = "target=" SORREL_BENCH_NULL_TARGET "\n";
    for (std::size_t i = 1; i < count; ++i) {
        lines += "component=component-" + std::to_string(i) + ", 0 0111 1111\n";
    }
    return lines;
}

// Naming the application reads the file of that name before it returns.
double timeOfNaming(const char* name) {
    const double begin = nanosecondsNow();
    sorrel_set_applicationname(name);
    return (nanosecondsNow() - begin) / 1e3;
}

} // namespace

void measureConfiguration(std::size_t lines) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_NULL_TARGET "\n");
    configuration.write("sorrel-many.cfg", linesOfComponents(lines));
    sorrel_create_component("bench", SR_INFO, "64=INFO");
    const double first = timeOfNaming("many");
    sorrel_set_applicationname("few");
    const double again = timeOfNaming("many");
    printf("{\"first\": %.1f, \"again\": %.1f}\n", first, again);
}
