/* The library called from C. */
#include "c_api_test.h"

#include <stddef.h>

sorrel_component* createFromC(sorrel_level* level) {
    return sorrel_create_component("net", level, "8=ERR,16=WARN");
}

void logFromC(sorrel_component* component) {
    sorrel_init_nosorrel("plain c");
    sorrel_init(component, "c");
    sorrel_enter_function(component, "connect");
    _sorrel(component, SR_INFO, "port %d of %s", 80, "host");
    sor_syslog(component, SR_INFO, "%s", "by way of syslog");
    sorrel_dump(component, SR_INFO, "A", 1);
    sorrel_leave_function(component);
    sorrel_done(component);
}

sorrel_level* combineFromC(void) {
    sorrel_level* const levels[] = {SR_ERR, SR_WARN, SR_DEBUG};
    struct sorrel_level_collection collection;
    collection.first = levels;
    collection.count = sizeof levels / sizeof levels[0];
    return sorrel_bitwise_or_collection(&collection);
}

int checkLevelsFromC(void) {
    const sorrel_level* const level = sorrel_level_create(5);
    if (level->numeric != 5 || level->mask != 0x20U) {
        return __LINE__;
    }
    if (SR_ERR != SR_ERROR || SR_WARNING != SR_WARN || SR_ALL->mask != 0xffffffffU) {
        return __LINE__;
    }
    if (sorrel_level_to_prio(SR_CRIT) != 2 || sorrel_level_to_prio(NULL) != 7) {
        return __LINE__;
    }
    return 0;
}

struct namesFromC nameFromC(const char* configured, const char* plain) {
    struct namesFromC names;
    names.configured = sorrel_set_applicationname(configured);
    names.plain = sorrel_set_applicationname_nosorrel(plain);
    return names;
}
