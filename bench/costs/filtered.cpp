// Messages that do not pass.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <cstdio>
#include <sorrel/component.hpp>

void measureFiltered(double milliseconds) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_NULL_TARGET "\n");
    sorrel_component* const component = sorrel_create_component("bench", SR_INFO, "64=INFO");
    _sorrel(component, SR_INFO, "the logger is there");
    const double call =
        timeOfOne(milliseconds, [component](int i) { _sorrel(component, SR_DEBUG, "%s %d", "value", i); });
    const double check = timeOfOne(milliseconds, [component](int i) {
        if (sorrel::enabled(component, SR_DEBUG)) {
            _sorrel(component, SR_DEBUG, "%s %d", "value", i);
        }
    });
    printf("{\"call\": %.2f, \"check\": %.2f}\n", call, check);
}
