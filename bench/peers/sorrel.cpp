// This library, with one target that is loaded as every target is.
#include "configuration_directory.hpp"
#include "peer.hpp"

#include <sorrel/level.h>
#include <sorrel/sorrel.h>

namespace {

sorrel_component* component = nullptr;

} // namespace

const char* const peer::kName = "sorrel";

// A launcher may have set up the configuration already.
void peer::start() {
    if (std::getenv("SORL_PATH") == nullptr) {
        static const ConfigurationDirectory configuration;
        configuration.write("sorrel.cfg", "target=" SORREL_BENCH_TALLY_TARGET "\n");
    }
    component = sorrel_create_component("bench", SR_INFO, "64=INFO");
}

void peer::logMessage(const char* word, int number, double fraction) {
    _sorrel(component, SR_INFO, "%s %d %f", word, number, fraction);
}

void peer::logDump(const unsigned char* data, unsigned int size, bool) {
    sorrel_dump(component, SR_INFO, data, size);
}

void peer::finish() {}
