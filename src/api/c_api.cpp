// The functions with plain C names: each forwards to one member of a logger.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include "core/interned_name.hpp"
#include "core/message_path.hpp"

#include <cstdarg>

using sorrel::ErrnoKeeper;

namespace {

// What is left to do for a message that passes, or that is the first and builds the logger. Not inlined: what it needs
// of the stack is not for messages that are filtered.
__attribute__((noinline, format(printf, 4, 0))) void logFurther(CSorrel* logger, sorrel_component* component,
                                                                sorrel_level* level, const char* format, va_list args) {
    const ErrnoKeeper keeper;
    if (logger == nullptr) {
        logger = CSorrel::getInstance();
        keeper.restore(); // %m shows the caller's errno, not what building the logger left
    }
    logger->log(component, level, format, args);
}

} // namespace

// A filtered message costs the two tests and nothing else, once the logger exists.
void _sorrel(sorrel_component* component, sorrel_level* level, const char* format, ...) {
    CSorrel* const logger = sorrel::configuredLogger.load(std::memory_order_acquire);
    if (logger != nullptr && !sorrel::enabled(component, level)) {
        return;
    }
    va_list args;
    va_start(args, format);
    logFurther(logger, component, level, format, args);
    va_end(args);
}

void sor_syslog(sorrel_component* component, sorrel_level* level, const char* format, ...) {
    const ErrnoKeeper keeper;
    CSorrel* const logger = CSorrel::getInstance();
    keeper.restore();
    va_list args;
    va_start(args, format);
    logger->sorSyslog(component, level, format, args);
    va_end(args);
}

void sorrel_dump(sorrel_component* component, sorrel_level* level, const void* data, unsigned int length) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance()->dump(component, level, data, length);
}

void sorrel_init(sorrel_component* component, const char* threadName) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance()->init(component, threadName, true);
}

void sorrel_init_nosorrel(const char* threadName) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance_NoSorrel()->init(nullptr, threadName, false);
}

void sorrel_done(sorrel_component* component) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance()->done(component);
}

void sorrel_enter_function(sorrel_component* component, const char* functionName) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance()->enterFunction(component, functionName);
}

void sorrel_leave_function(sorrel_component* component) {
    const ErrnoKeeper keeper;
    CSorrel::getInstance()->leaveFunction(component);
}

sorrel_component* sorrel_create_component(const char* name, sorrel_level* level, const char* descriptions) {
    return CSorrel::getInstance()->createComponent(name, level, descriptions);
}

const char* sorrel_set_applicationname(const char* name) {
    const std::string& lasting = sorrel::internedName(name);
    CSorrel::getInstance()->setApplicationname(lasting);
    return lasting.c_str();
}

const char* sorrel_set_applicationname_nosorrel(const char* name) {
    const std::string& lasting = sorrel::internedName(name);
    CSorrel::getInstance_NoSorrel()->setApplicationname_Nosorrel(lasting);
    return lasting.c_str();
}

int sorrel_level_to_prio(sorrel_level* level) {
    return CSorrel::level_to_prio(level);
}
