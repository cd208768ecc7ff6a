// Names of the application that last.
#include "core/interned_name.hpp"

#include "core/leaf_lock.hpp"

#include <mutex>
#include <set>

const std::string& sorrel::internedName(const std::string& name) {
    static std::set<std::string>& names = *new std::set<std::string>;
    const std::lock_guard<std::mutex> guard(leafLock);
    return *names.insert(name).first;
}
