// Look-up of components without a lock, for all loggers of the process.
#ifndef SORREL_CORE_COMPONENT_INDEX_HPP
#define SORREL_CORE_COMPONENT_INDEX_HPP

#include <sorrel/component.hpp>

#include <string>

namespace sorrel {

// A number that no other logger of the process has or had.
unsigned int nextLoggerNumber() noexcept;

// Makes a component findable for good. Names are registered once a logger. Throws std::bad_alloc, and then nothing has
// changed.
void addToComponentIndex(unsigned int logger, sorrel_component& component);

// The component, or null. Takes no lock; never waits.
sorrel_component* findInComponentIndex(unsigned int logger, const std::string& name) noexcept;

} // namespace sorrel

#endif // SORREL_CORE_COMPONENT_INDEX_HPP
