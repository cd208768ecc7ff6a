// The optional entry points of a plug-in, written into the journal.
#include "journal_target.hpp"

void dynamic_module_init(void* argument) {
    PluginEvent event = newEvent("init");
    event.text = argument == nullptr ? "null" : "set";
    journal::add(event);
}

void dynamic_module_done() {
    journal::add(newEvent("done"));
}
