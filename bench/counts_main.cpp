// Logs in a loop, so that a counter of instructions sees what one message costs: sorrel_bench_counts LOOP COUNT, where
// the loop is filtered, inline or passing.
#include "configuration_directory.hpp"

#include <sorrel/component.hpp>
#include <sorrel/level.h>
#include <sorrel/sorrel.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

using Loop = void (*)(sorrel_component* component, int count);

void filtered(sorrel_component* component, int count) {
    for (int i = 0; i < count; ++i) {
        _sorrel(component, SR_DEBUG, "%s %d %f", "a word", i, 0.25 * i);
    }
}

void filteredInline(sorrel_component* component, int count) {
    for (int i = 0; i < count; ++i) {
        if (sorrel::enabled(component, SR_DEBUG)) {
            _sorrel(component, SR_DEBUG, "%s %d %f", "a word", i, 0.25 * i);
        }
    }
}

void passing(sorrel_component* component, int count) {
    for (int i = 0; i < count; ++i) {
        _sorrel(component, SR_INFO, "%s %d %f", "a word", i, 0.25 * i);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, Loop> loops = {
        {"filtered", filtered}, {"inline", filteredInline}, {"passing", passing}};
    const auto loop = argc == 3 ? loops.find(argv[1]) : loops.end();
    if (loop == loops.end()) {
        std::fprintf(stderr, "usage: sorrel_bench_counts filtered|inline|passing COUNT\n");
        return 2;
    }
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "target=" SORREL_BENCH_NULL_TARGET "\n");
    loop->second(sorrel_create_component("bench", SR_INFO, "64=INFO"), std::atoi(argv[2]));
    return 0;
}
