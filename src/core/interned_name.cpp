// Names of the application that last.
#include "core/interned_name.hpp"

#include "core/leaf_lock.hpp"

#include <mutex>
#include <set>

const std::string& sorrel::internedName(const std::string& name) {
    static std::set<std::string>* names = nullptr; // not a guarded static: a forked child may be the next to ask
    const std::lock_guard<std::mutex> guard(leafLock);
    if (names == nullptr) {
        names = new std::set<std::string>;
    }
    return *names->insert(name).first;
}
