// A message to many targets.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>

namespace {

// The same file under two names is two libraries only when it is copied.
std::string linesOfCopiedTargets(const ConfigurationDirectory& configuration, std::size_t count) {
    std::string lines;
    for (std::size_t i = 0; i < count; ++i) {
        const std::filesystem::path copy = configuration.path() / ("null_target_" + std::to_string(i) + ".so");
        std::filesystem::copy_file(SORREL_BENCH_NULL_TARGET, copy);
        lines += "target=" + copy.string() + "\n";
    }
    return lines;
}

} // namespace

void measureTargets(std::size_t count, double milliseconds) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", linesOfCopiedTargets(configuration, count));
    sorrel_component* const component = sorrel_create_component("bench", SR_INFO, "64=INFO");
    const double message =
        timeOfOne(milliseconds, [component](int i) { _sorrel(component, SR_INFO, "%s %d %f", "value", i, 0.25 * i); });
    printf("{\"message\": %.2f}\n", message);
}
