// Level records: their store, their creation, and the predefined ones.
#include <sorrel/level.h>

#include "core/leaf_lock.hpp"

#include <list>
#include <mutex>

namespace {

// Append-only, so that addresses never change; guarded by leafLock. Never destroyed: threads may log while static
// objects are destroyed.
std::list<sorrel_level>& levelStore() {
    static std::list<sorrel_level>& levels = *new std::list<sorrel_level>;
    return levels;
}

// Deliberate: the shift count is the low eight bits, and a count that a 32-bit word does not have gives no bit.
unsigned int maskOfNumeric(int numeric) {
    const unsigned int shift = static_cast<unsigned int>(numeric) & 0xffU;
    return shift < 32 ? 1U << shift : 0;
}

} // namespace

sorrel_level* sorrel::sorrel_level_create(int numeric, unsigned int mask) {
    std::list<sorrel_level>& levels = levelStore();
    const std::lock_guard<std::mutex> guard(leafLock);
    levels.push_back({numeric, mask});
    return &levels.back();
}

sorrel_level* sorrel_level_create(int numeric) {
    return sorrel::sorrel_level_create(numeric, maskOfNumeric(numeric));
}

sorrel_level* sorrel_bitwise_or_collection(const sorrel_level_collection* levels) {
    unsigned int mask = 0;
    for (unsigned int i = 0; i < levels->count; ++i) {
        mask |= levels->first[i]->mask;
    }
    return sorrel::sorrel_level_create(32, mask);
}

unsigned int sorrel::sorrel_level_to_mask(const sorrel_level* level) {
    return level->mask;
}

int sorrel::sorrel_level_to_numeric(const sorrel_level* level) {
    return level->numeric;
}

// Created while the library is loaded, in this order.
sorrel_level* SR_EMERG = sorrel_level_create(0);
sorrel_level* SR_ALERT = sorrel_level_create(1);
sorrel_level* SR_CRIT = sorrel_level_create(2);
sorrel_level* SR_ERR = sorrel_level_create(3);
sorrel_level* SR_ERROR = SR_ERR;
sorrel_level* SR_WARNING = sorrel_level_create(4);
sorrel_level* SR_WARN = SR_WARNING;
sorrel_level* SR_NOTICE = sorrel_level_create(5);
sorrel_level* SR_INFO = sorrel_level_create(6);
sorrel_level* SR_DEBUG = sorrel_level_create(7);
sorrel_level* SR_ENTERLEAVE = sorrel_level_create(8);
sorrel_level* SR_ALL = sorrel::sorrel_level_create(32, 0xffffffffU);
