// Append-only hash table of components. Writers take a mutex; readers see every entry through acquire loads. A table
// that is half full is replaced by one of twice the size, and kept, since readers may still be in it.
#include "core/component_index.hpp"

#include "core/leaf_lock.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

namespace {

struct Entry {
    const unsigned int logger;
    const std::size_t hash;
    sorrel_component& component;
};

using Slot = std::atomic<const Entry*>;

struct Table {
    explicit Table(std::size_t size) : mask(size - 1), slots(new Slot[size]()) {}

    const std::size_t mask; // size - 1; the size is a power of two
    const std::unique_ptr<Slot[]> slots;
    std::unique_ptr<const Table> previous; // readers may still be in it
};

constexpr std::size_t kFirstSize = 64;

std::atomic<Table*> currentTable{nullptr}; // never freed
std::size_t entryCount = 0;                // guarded by leafLock
std::atomic<unsigned int> loggerCount{0};

std::size_t hashOf(unsigned int logger, const std::string& name) {
    return std::hash<std::string>()(name) ^ (std::size_t{logger} * 0x9e3779b9U);
}

// There is always a free slot.
void put(Table& table, const Entry& entry) {
    std::size_t i = entry.hash & table.mask;
    while (table.slots[i].load(std::memory_order_relaxed) != nullptr) {
        i = (i + 1) & table.mask;
    }
    table.slots[i].store(&entry, std::memory_order_release);
}

// A table with room for one more entry. Not more than half of it is ever used.
Table& tableWithRoom() {
    Table* const old = currentTable.load(std::memory_order_relaxed);
    if (old != nullptr && (entryCount + 1) * 2 <= old->mask + 1) {
        return *old;
    }
    auto grown = std::make_unique<Table>(old != nullptr ? (old->mask + 1) * 2 : kFirstSize);
    for (std::size_t i = 0; old != nullptr && i <= old->mask; ++i) {
        if (const Entry* const entry = old->slots[i].load(std::memory_order_relaxed)) {
            put(*grown, *entry);
        }
    }
    grown->previous.reset(old);
    currentTable.store(grown.get(), std::memory_order_release);
    return *grown.release();
}

} // namespace

unsigned int sorrel::nextLoggerNumber() noexcept {
    return loggerCount.fetch_add(1, std::memory_order_relaxed);
}

void sorrel::addToComponentIndex(unsigned int logger, sorrel_component& component) {
    auto entry = std::make_unique<const Entry>(Entry{logger, hashOf(logger, component.name), component});
    const std::lock_guard<std::mutex> guard(leafLock);
    Table& table = tableWithRoom();
    put(table, *entry.release());
    ++entryCount;
}

sorrel_component* sorrel::findInComponentIndex(unsigned int logger, const std::string& name) noexcept {
    const Table* const table = currentTable.load(std::memory_order_acquire);
    if (table == nullptr) {
        return nullptr;
    }
    const std::size_t hash = hashOf(logger, name);
    for (std::size_t i = hash & table->mask;; i = (i + 1) & table->mask) {
        const Entry* const entry = table->slots[i].load(std::memory_order_acquire);
        if (entry == nullptr) {
            return nullptr;
        }
        if (entry->hash == hash && entry->logger == logger && entry->component.name == name) {
            return &entry->component;
        }
    }
}
