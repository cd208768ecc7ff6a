// Level descriptions, beside the oracle: the pairs that are appended to a component.
#include "core/level_descriptions.hpp"

#include "oracle/value_grammars.hpp"
#include "support/difference.hpp"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    sorrel_component component{"c", 1, {{1, "B"}}};
    sorrel::parseLevelDescriptions(component, text);

    std::vector<std::pair<unsigned int, std::string>> expected = {{1, "B"}};
    for (const auto& pair : oracle::levelDescriptions(text)) {
        expected.push_back(pair);
    }
    expectSame("level descriptions", component.levelDescriptions, expected);
    return 0;
}
