// Has no factory to give.
#include "journal_target.hpp"

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return nullptr;
}
