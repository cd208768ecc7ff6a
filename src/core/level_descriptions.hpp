// Printable names for the bits of a component's mask.
#ifndef SORREL_CORE_LEVEL_DESCRIPTIONS_HPP
#define SORREL_CORE_LEVEL_DESCRIPTIONS_HPP

#include <sorrel/component.hpp>

#include <string>

namespace sorrel {

// Appends a (mask, name) pair to the component for each well-formed entry of "8=ERR,16=WARN"; others are skipped. The
// caller holds the components lock.
void parseLevelDescriptions(sorrel_component& component, const std::string& descriptions);

} // namespace sorrel

#endif // SORREL_CORE_LEVEL_DESCRIPTIONS_HPP
