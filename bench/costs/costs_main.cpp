// Measures one part of this library: sorrel_bench_costs PART NUMBER...
#include "costs.hpp"

#include <cstdio>
#include <map>

namespace {

using Numbers = std::vector<double>;

struct Part {
    std::size_t numbers;
    std::function<void(const Numbers&)> measure;
};

std::size_t count(double number) {
    return static_cast<std::size_t>(number);
}

const std::map<std::string, Part>& parts() {
    static const std::map<std::string, Part> all = {
        {"filtered", {1, [](const Numbers& with) { measureFiltered(with[0]); }}},
        {"targets", {2, [](const Numbers& with) { measureTargets(count(with[0]), with[1]); }}},
#ifdef SORREL_BENCH_RECORDER
        {"recorder", {1, [](const Numbers& with) { measureRecorder(with[0]); }}},
#endif
        {"components", {1, [](const Numbers& with) { measureComponents(count(with[0])); }}},
        {"configuration", {1, [](const Numbers& with) { measureConfiguration(count(with[0])); }}},
        {"rewrite", {1, [](const Numbers& with) { measureRewrite(count(with[0])); }}},
        {"reloads", {1, [](const Numbers& with) { measureReloads(with[0]); }}},
    };
    return all;
}

} // namespace

int main(int argc, char** argv) {
    const auto part = parts().find(argc > 1 ? argv[1] : "");
    Numbers numbers;
    for (int i = 2; i < argc; ++i) {
        numbers.push_back(std::stod(argv[i]));
    }
    if (part == parts().end() || part->second.numbers != numbers.size()) {
        fprintf(stderr, "usage: PART NUMBER..., with the parts and numbers of costs.hpp\n");
        return 1;
    }
    part->second.measure(numbers);
    return 0;
}
