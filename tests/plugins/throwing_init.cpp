// The init function of a plug-in that cannot be initialised.
#include "journal_target.hpp"

#include <stdexcept>

void dynamic_module_init(void*) {
    journal::add(newEvent("init"));
    throw std::runtime_error("throwing: init");
}
