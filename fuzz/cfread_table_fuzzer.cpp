// Files read into a table, beside the oracle: the entries in their slots, their numbers, the error.
#include <sorrel/cfread.h>

#include "oracle/config_file.hpp"
#include "support/difference.hpp"
#include "support/memory_file.hpp"
#include "support/recorded_syslog.hpp"

#include <algorithm>
#include <cstdint>

namespace {

using Entry = std::pair<std::pair<std::string, std::string>, int>; // key, value, number
using Slots = std::map<int, Entry>;

Slots slotsOf(const cfread_handle& handle) {
    Slots slots;
    for (int slot = 0; slot < handle.capacity; ++slot) {
        if (const cfread_entry* const entry = handle.table[slot]) {
            expectSame("index", entry->index, slot);
            slots[slot] = {{entry->key, entry->value}, entry->number};
        }
    }
    expectSame("count", handle.count, static_cast<int>(slots.size()));
    return slots;
}

// Nothing leaves a gap: a key that occurs again gets the slot that it had.
Slots expectedSlots(const oracle::ConfigFile& file) {
    Slots slots;
    for (const auto& line : file.lines) {
        const auto known = std::find_if(slots.begin(), slots.end(),
                                        [&](const auto& slot) { return slot.second.first.first == line.first; });
        const int slot = known != slots.end() ? known->first : static_cast<int>(slots.size());
        slots[slot] = {line, oracle::numberOf(line.second)};
    }
    return slots;
}

// Looks every entry up, and stores it anew from its own texts.
void checkLookUp(cfread_handle& handle, const Slots& slots) {
    for (const auto& slot : slots) {
        const std::string key = slot.second.first.first;
        const cfread_entry* const entry = cfread_find_entry(&handle, key.c_str());
        expectSame("slot of a key", entry != nullptr ? entry->index : -1, slot.first);
        expectSame("stored anew", cfread_set_entry(&handle, entry->key, entry->value) != nullptr ? 1 : 0, 1);
    }
    expectSame("table after storing all entries anew", slotsOf(handle), slots);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static MemoryFile file;
    const std::string content(reinterpret_cast<const char*>(data), size);
    file.write(content);
    const oracle::ConfigFile expected = oracle::configFile(content, file.path(), false);

    cfread_handle* const handle = cfread_open(file.path().c_str());
    expectSame("error", takeSyslog(), expected.error);
    expectSame("has a table", handle != nullptr ? 1 : 0, expected.error.empty() ? 1 : 0);
    if (handle != nullptr) {
        const Slots slots = expectedSlots(expected);
        expectSame("table", slotsOf(*handle), slots);
        expectSame("capacity", handle->capacity, static_cast<int>((slots.size() + 63) / 64 * 64));
        checkLookUp(*handle, slots);
    }
    cfread_close(handle);
    return 0;
}
