// A message to the recorder.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>

void measureRecorder(double milliseconds) {
    const ConfigurationDirectory configuration;
    const std::string file = configuration.path() / "bench.ring";
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_RECORDER ", file=" + file + "\n");
    sorrel_component* const component = sorrel_create_component("bench", SR_INFO, "64=INFO");
    const double message =
        timeOfOne(milliseconds, [component](int i) { _sorrel(component, SR_INFO, "%s %d %f", "value", i, 0.25 * i); });
    printf("{\"message\": %.2f}\n", message);
}
