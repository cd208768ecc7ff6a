// The component record: one named source of messages.
#ifndef SORREL_COMPONENT_HPP
#define SORREL_COMPONENT_HPP

#include <sorrel/level.h>

#include <string>
#include <utility>
#include <vector>

// Made by the logger's registry and never freed: a pointer to one stays valid until the process ends, also while static
// objects are being destroyed. `name` never changes. `mask` and `levelDescriptions` change under the registry's lock;
// read them through sorrel_get_component_level and sorrel_get_level_descriptions. `enabled` reads `mask` without a
// lock.
struct sorrel_component {
    std::string name;  // the key in the registry
    unsigned int mask; // level bits that pass; see <sorrel/level.h>

    // Printable names of mask values, in the order in which they were given, duplicates included.
    std::vector<std::pair<unsigned int, std::string>> levelDescriptions;
};

namespace sorrel {

// Whether a message of this level passes the component's mask; not when one of them is null. This is the test that
// _sorrel and sorrel_dump make. Made in the caller's own code, before the arguments are evaluated, it spares a message
// that does not pass everything else. It takes no lock, and never builds the logger, as the first _sorrel does:
//
//     if (sorrel::enabled(net, SR_DEBUG)) {
//         _sorrel(net, SR_DEBUG, "routes: %s", describe(routes).c_str());
//     }
inline bool enabled(const sorrel_component* component, const sorrel_level* level) {
    return component != nullptr && level != nullptr &&
           (__atomic_load_n(&component->mask, __ATOMIC_RELAXED) & level->mask) != 0;
}

} // namespace sorrel

#endif // SORREL_COMPONENT_HPP
