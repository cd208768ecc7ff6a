// The global locale, kept for forked children.
#include "core/default_locale.hpp"

namespace {

bool isForkedChild = false;

// Never destroyed: children may be forked, and log, until the process ends.
std::locale& parentsLocale() {
    static auto* const kept = new std::locale(std::locale::classic());
    return *kept;
}

} // namespace

namespace sorrel {

std::locale defaultLocale() {
    return isForkedChild ? parentsLocale() : std::locale();
}

void keepLocaleForChild() {
    if (!isForkedChild) {
        parentsLocale() = std::locale();
    }
}

void takeParentsLocale() {
    isForkedChild = true;
}

} // namespace sorrel
