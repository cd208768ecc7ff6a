// This library, with its journal target.
#include "../configuration_directory.hpp"
#include "../peer.hpp"

#include <sorrel/level.h>
#include <sorrel/sorrel.h>

namespace {

sorrel_component* component = nullptr;

} // namespace

const char* const peer::kName = "sorrel";

void peer::start() {
    static const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_JOURNAL_TARGET ", wait=10000\n");
    component = sorrel_create_component("bench", SR_INFO, "64=INFO");
}

void peer::logMessage(const char* word, int number, double fraction) {
    _sorrel(component, SR_INFO, "%s %d %f", word, number, fraction);
}
