// Table of the entries of a `key=value` file. Knows the C library and nothing of ours.
#include <sorrel/cfread.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <syslog.h>

namespace {

constexpr int kTableStep = 64;

bool isDecimal(const char* text) {
    if (*text == '\0') {
        return false;
    }
    if (*text == '+' || *text == '-') {
        ++text;
    }
    while (std::isdigit(static_cast<unsigned char>(*text)) != 0) {
        ++text;
    }
    return *text == '\0';
}

// Deliberate: the two extreme values are not told apart from those beyond them.
int numberOf(const char* value) {
    if (isDecimal(value)) {
        const long number = std::strtol(value, nullptr, 10);
        return number > INT_MIN && number < INT_MAX ? static_cast<int>(number) : -1;
    }
    if (std::strcmp(value, "true") == 0) {
        return 1;
    }
    return std::strcmp(value, "false") == 0 ? 0 : -1;
}

struct EntryDeleter {
    void operator()(cfread_entry* entry) const {
        std::free(entry->key);
        std::free(entry->value);
        std::free(entry);
    }
};
using EntryOwner = std::unique_ptr<cfread_entry, EntryDeleter>;

// Copies both texts; null when memory is out.
EntryOwner makeEntry(const char* key, const char* value) {
    EntryOwner entry(static_cast<cfread_entry*>(std::calloc(1, sizeof(cfread_entry))));
    if (entry) {
        entry->key = strdup(key);
        entry->value = strdup(value);
        if (entry->key == nullptr || entry->value == nullptr) {
            return nullptr;
        }
        entry->number = numberOf(value);
    }
    return entry;
}

EntryOwner takeEntry(cfread_handle& handle, const char* key) {
    cfread_entry* const entry = cfread_find_entry(&handle, key);
    if (entry != nullptr) {
        handle.table[entry->index] = nullptr;
        --handle.count;
    }
    return EntryOwner(entry);
}

// The lowest free slot, or -1.
int findFreeSlot(const cfread_handle& handle) {
    for (int slot = 0; handle.table != nullptr && slot < handle.capacity; ++slot) {
        if (handle.table[slot] == nullptr) {
            return slot;
        }
    }
    return -1;
}

[[noreturn]] void endWithoutIndex() {
    syslog(LOG_EMERG, "cfread: unable to get a free index");
    std::exit(1);
}

// Adds 64 empty slots; false when memory is out.
bool growTable(cfread_handle& handle) {
    const int oldCapacity = handle.table != nullptr ? handle.capacity : 0;
    int newCapacity = 0;
    if (oldCapacity < 0 || __builtin_add_overflow(oldCapacity, kTableStep, &newCapacity)) {
        endWithoutIndex();
    }
    auto* const table = static_cast<cfread_entry**>(
        std::realloc(handle.table, static_cast<std::size_t>(newCapacity) * sizeof(cfread_entry*)));
    if (table == nullptr) {
        return false;
    }
    std::fill(table + oldCapacity, table + newCapacity, nullptr);
    handle.table = table;
    handle.capacity = newCapacity;
    return true;
}

} // namespace

cfread_entry* cfread_find_entry(const cfread_handle* handle, const char* key) {
    if (handle == nullptr || handle->table == nullptr || key == nullptr || key[0] == '\0') {
        return nullptr;
    }
    for (int slot = 0; slot < handle->capacity; ++slot) {
        cfread_entry* const entry = handle->table[slot];
        if (entry != nullptr && std::strcmp(entry->key, key) == 0) {
            return entry;
        }
    }
    return nullptr;
}

cfread_entry* cfread_set_entry(cfread_handle* handle, const char* key, const char* value) {
    if (handle == nullptr || key == nullptr || key[0] == '\0') {
        return nullptr;
    }
    const EntryOwner replaced = takeEntry(*handle, key); // freed last: key and value may be its own
    int slot = findFreeSlot(*handle);
    if (slot == -1 && growTable(*handle)) {
        slot = findFreeSlot(*handle);
    }
    EntryOwner entry = slot != -1 ? makeEntry(key, value != nullptr ? value : "") : nullptr;
    if (!entry) {
        syslog(LOG_ERR, "cfread: unable to add entry '%s' in %s", key, handle->file_name);
        return nullptr;
    }
    entry->index = slot;
    handle->table[slot] = entry.get();
    ++handle->count;
    return entry.release();
}

void cfread_close(cfread_handle* handle) {
    if (handle == nullptr) {
        return;
    }
    for (int slot = 0; handle->table != nullptr && slot < handle->capacity; ++slot) {
        if (handle->table[slot] != nullptr) {
            EntryDeleter()(handle->table[slot]);
        }
    }
    std::free(handle->table);
    std::free(handle);
}
