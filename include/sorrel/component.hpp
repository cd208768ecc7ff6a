// The component record: one named source of messages.
#ifndef SORREL_COMPONENT_HPP
#define SORREL_COMPONENT_HPP

#include <string>
#include <utility>
#include <vector>

// Made by the logger's registry and never freed: a pointer to one stays valid until the process ends, also while static
// objects are being destroyed. `name` never changes. `mask` and `levelDescriptions` change under the registry's lock;
// read them through sorrel_get_component_level and sorrel_get_level_descriptions, or `mask` alone without a lock
// through
// __atomic_load_n, as the message path does.
struct sorrel_component {
    std::string name;  // the key in the registry
    unsigned int mask; // level bits that pass; see <sorrel/level.h>

    // Printable names of mask values, in the order in which they were given, duplicates included.
    std::vector<std::pair<unsigned int, std::string>> levelDescriptions;
};

#endif // SORREL_COMPONENT_HPP
