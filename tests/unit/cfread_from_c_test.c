/* The config-file reader as a C program uses it. Each function returns 0, or the line of the check that failed. */
#include <sorrel/cfread.h>

#include <stdio.h>
#include <string.h>

#define CHECK(condition)                                                                                               \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            return __LINE__;                                                                                           \
        }                                                                                                              \
    } while (0)

int readTableFromC(const char* fileName);
int readLinesFromC(const char* fileName);

int readTableFromC(const char* fileName) {
    cfread_handle* table = cfread_open(fileName);
    CHECK(table != NULL);
    CHECK(table->count == 2 && table->capacity == 64);
    const cfread_entry* entry = cfread_find_entry(table, "port");
    CHECK(entry != NULL && entry->number == 514);
    CHECK(table->table[entry->index] == entry);
    entry = cfread_set_entry(table, "port", "true");
    CHECK(entry != NULL && entry->number == 1 && strcmp(entry->value, "true") == 0);
    CHECK(cfread_find_entry(table, "Port") == NULL);
    cfread_close(table);
    CHECK(cfread_open(NULL) == NULL);
    return 0;
}

struct Lines {
    int count;
    char text[64];
};

static int addLine(const char* key, const char* value, void* userData) {
    struct Lines* lines = userData;
    const size_t used = strlen(lines->text);
    snprintf(lines->text + used, sizeof lines->text - used, "[%s|%s]", key, value);
    return ++lines->count == 3;
}

int readLinesFromC(const char* fileName) {
    struct Lines lines = {0, ""};
    const cfread_callback callback = addLine;
    CHECK(cfread_parse_with_callback(fileName, callback, &lines, true) == 0);
    CHECK(strcmp(lines.text, "[host|example ][port|514][|]") == 0);
    CHECK(cfread_parse_with_callback("", callback, &lines, false) == -1);
    return 0;
}
