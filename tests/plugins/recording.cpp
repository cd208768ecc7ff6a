// Writes everything into the journal, under the library's name and the parameter `tag`.
#include "journal_target.hpp"

namespace {
JournalFactory<JournalTarget> factory;
}

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
