/* A program in plain C that uses every function with a C name. It checks what it can see itself and returns the number
 * of failures; what its messages looked like is seen by the target that its configuration loads.
 */
#include <sorrel/cfread.h>
#include <sorrel/level.h>
#include <sorrel/sorrel.h>

#include <stddef.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

static void check(int condition, const char* text, int line) {
    if (!condition) {
        fprintf(stderr, "c_program.c:%d: %s\n", line, text);
        ++failures;
    }
}
#define CHECK(condition) check((condition), #condition, __LINE__)

static void checkLevels(void) {
    const struct {
        const sorrel_level* level;
        int numeric;
        unsigned int mask;
    } expected[] = {{SR_EMERG, 0, 0x1u}, {SR_ALERT, 1, 0x2u},    {SR_CRIT, 2, 0x4u},         {SR_ERR, 3, 0x8u},
                    {SR_ERROR, 3, 0x8u}, {SR_WARNING, 4, 0x10u}, {SR_WARN, 4, 0x10u},        {SR_NOTICE, 5, 0x20u},
                    {SR_INFO, 6, 0x40u}, {SR_DEBUG, 7, 0x80u},   {SR_ENTERLEAVE, 8, 0x100u}, {SR_ALL, 32, 0xffffffffu}};
    for (size_t i = 0; i < sizeof expected / sizeof expected[0]; ++i) {
        CHECK(expected[i].level != NULL && expected[i].level->numeric == expected[i].numeric &&
              expected[i].level->mask == expected[i].mask);
    }
    CHECK(SR_ERR == SR_ERROR && SR_WARNING == SR_WARN);

    sorrel_level* const pair[] = {SR_ERR, SR_DEBUG};
    const struct sorrel_level_collection collection = {pair, 2};
    sorrel_level* const both = sorrel_bitwise_or_collection(&collection);
    CHECK(both->numeric == 32 && both->mask == 0x88u);
    CHECK(sorrel_level_create(31)->mask == 0x80000000u);
    CHECK(sorrel_level_to_prio(SR_NOTICE) == 5);
}

static void checkReader(const char* fileName) {
    cfread_handle* const handle = cfread_open(fileName);
    CHECK(handle != NULL);
    CHECK(cfread_find_entry(handle, "target") != NULL);
    const cfread_entry* const entry = cfread_set_entry(handle, "answer", "42");
    CHECK(entry != NULL && entry->number == 42 && handle->table[entry->index] == entry);
    cfread_close(handle);
    CHECK(cfread_parse_with_callback("/nowhere/at/all", NULL, NULL, 0) == -1);
}

static void logEverything(void) {
    sorrel_component* const component = sorrel_create_component("plain-c", SR_ALL, "64=INFO");
    sorrel_init(component, "main");
    _sorrel(component, SR_INFO, "SR_ENTERLEAVE=%p", (void*)SR_ENTERLEAVE);
    sor_syslog(component, SR_INFO, "via syslog");
    sorrel_dump(component, SR_INFO, "dump", 4);
    sorrel_enter_function(component, "logEverything");
    sorrel_leave_function(component);
    sorrel_done(component);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        return 1;
    }
    checkLevels();
    checkReader(argv[1]);
    sorrel_init_nosorrel("plain");
    CHECK(strcmp(sorrel_set_applicationname_nosorrel("plain"), "plain") == 0);
    logEverything();
    CHECK(strcmp(sorrel_set_applicationname("c-program"), "c-program") == 0);
    return failures;
}
