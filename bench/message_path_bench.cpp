// The road of a message: filtered, passing to no target and to one, beside the floor; traced functions; hex dumps.
// Everything runs on the one configured logger of the process, whose configuration lies in a directory of its own.
#include "configuration_directory.hpp"
#include "message_floor.hpp"
#include "null_target.hpp"

#include <sorrel/level.h>
#include <sorrel/sorrel.h>

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <vector>

namespace {

// Each name has a configuration of its own, which is in force when the call returns.
void useNoTarget(const benchmark::State&) {
    sorrel_set_applicationname("none");
}

void useOneTarget(const benchmark::State&) {
    sorrel_set_applicationname("one");
}

sorrel_component* benchComponent() {
    static sorrel_component* const component =
        sorrel_create_component("bench", sorrel::sorrel_bitwise_or_collection({SR_INFO, SR_ENTERLEAVE}), "");
    return component;
}

void filteredMessage(benchmark::State& state) {
    sorrel_component* const component = benchComponent();
    int count = 0;
    for (auto _ : state) {
        _sorrel(component, SR_DEBUG, "value %d of %s", ++count, "the filtered message");
    }
}
BENCHMARK(filteredMessage)->Setup(useOneTarget);

void passingMessage(benchmark::State& state) {
    sorrel_component* const component = benchComponent();
    int count = 0;
    for (auto _ : state) {
        _sorrel(component, SR_INFO, "value %d of %s", ++count, "the passing message");
    }
}
BENCHMARK(passingMessage)->Name("passingMessage/no target")->Setup(useNoTarget);
BENCHMARK(passingMessage)->Name("passingMessage/one null target")->Setup(useOneTarget);

void floorOfAPassingMessage(benchmark::State& state) {
    sorrel_component* const component = benchComponent();
    NullTarget target;
    MessageFloor floor(target);
    int count = 0;
    for (auto _ : state) {
        floor.log(component, SR_INFO, "value %d of %s", ++count, "the passing message");
    }
}
BENCHMARK(floorOfAPassingMessage)->Setup(useOneTarget);

void enterAndLeave(benchmark::State& state) {
    sorrel_component* const component = benchComponent();
    for (auto _ : state) {
        sorrel_enter_function(component, "enterAndLeave");
        sorrel_leave_function(component);
    }
}
BENCHMARK(enterAndLeave)->Setup(useOneTarget);

void hexDump(benchmark::State& state) {
    sorrel_component* const component = benchComponent();
    const std::vector<unsigned char> data(static_cast<std::size_t>(state.range(0)), 0x41);
    for (auto _ : state) {
        sorrel_dump(component, SR_INFO, data.data(), static_cast<unsigned int>(data.size()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(hexDump)->Arg(16)->Arg(256)->Arg(4096)->Setup(useOneTarget);

} // namespace

int main(int argc, char** argv) {
    const ConfigurationDirectory configuration;
    configuration.write("sorrel.cfg", "# no target\n");
    configuration.write("sorrel-one.cfg", "target=" SORREL_BENCH_NULL_TARGET "\n");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
