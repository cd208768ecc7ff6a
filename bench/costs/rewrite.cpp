// From a rewritten file to the level in effect.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>
#include <cstdlib>
#include <sorrel/component.hpp>
#include <thread>

namespace {

constexpr double kPatience = 10e9; // nanoseconds

// Gives the processor away in between: what is waited for may need it.
void waitUntilEnabled(const sorrel_component* component, const sorrel_level* level, double begin) {
    while (!sorrel::enabled(component, level)) {
        if (nanosecondsNow() - begin > kPatience) {
            fprintf(stderr, "the rewritten file is not followed\n");
            std::exit(EXIT_FAILURE);
        }
        std::this_thread::yield();
    }
}

// In place, as a running program follows it. Its last step, the close, is the one that the library is told of.
double rewriteAndWait(const std::filesystem::path& file, const sorrel_component* component, bool debug) {
    std::ofstream stream(file);
    stream << (debug ? "component=bench, 0 1000 0000\n" : "component=bench, 0 0100 0000\n") << std::flush;
    const double begin = nanosecondsNow();
    stream.close();
    waitUntilEnabled(component, debug ? SR_DEBUG : SR_INFO, begin);
    return (nanosecondsNow() - begin) / 1e3;
}

} // namespace

void measureRewrite(std::size_t count) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "component=bench, 0 0100 0000\n");
    const sorrel_component* const component = sorrel_create_component("bench", SR_INFO, "64=INFO");
    std::vector<double> times;
    for (std::size_t i = 0; i < count; ++i) {
        times.push_back(rewriteAndWait(configuration.path() / "sorrel.cfg", component, i % 2 == 0));
    }
    std::sort(times.begin(), times.end());
    printf("{\"median\": %.0f, \"worst\": %.0f}\n", quantile(times, 0.5), times.back());
}
