// Parser of level descriptions.
#include "core/level_descriptions.hpp"

#include "core/text_split.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// Base 10, up to the first character that is no digit. Clamped to 32 bits, so that every machine reads the same.
unsigned int toMask(const std::string& digits) {
    const long value = std::strtol(digits.c_str(), nullptr, 10);
    return static_cast<unsigned int>(std::clamp<long>(value, INT32_MIN, INT32_MAX));
}

} // namespace

void sorrel::parseLevelDescriptions(sorrel_component& component, const std::string& descriptions) {
    for (const std::string& entry : splitAt(descriptions, ",")) {
        const std::vector<std::string> pieces = splitAt(entry, "=");
        if (pieces.size() == 2) {
            component.levelDescriptions.emplace_back(toMask(pieces[0]), pieces[1]);
        }
    }
}
