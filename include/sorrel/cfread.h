/* Reader of line-oriented `key=value` files, in two modes: into a table (cfread_open) or line by line into a callback
 * (cfread_parse_with_callback).
 *
 * Syntax. A line that starts with '#' is a comment; anywhere else '#' is an ordinary character. Every line, the last
 * one included, must end with a line feed or carriage return; what follows a carriage return is ignored. Spaces are
 * dropped from the key wherever they stand (tabs are kept) and from the start of the value; spaces inside and behind
 * the value are kept, and so is every '=' after the first. Bytes from 0x80 to 0xff are dropped. A line holds at most
 * 1023 bytes, its end included, a key and a value at most 255 each. (A comment needs no end; of one that is longer, the
 * rest counts as the next line.)
 *
 * Regular files are read, and /dev/null; everything else that might block is refused like a file that cannot be opened.
 * Errors go to syslog at LOG_ERR with the name of the file and the number of the line, and end the parse. A table that
 * cannot have one more slot ends the process, with a message at LOG_EMERG and status 1.
 *
 * The functions keep no state of their own, so different threads may read at the same time; one handle belongs to one
 * thread at a time. C++ exceptions of a callback pass through cfread_parse_with_callback, which closes its file.
 */
#ifndef SORREL_CFREAD_H
#define SORREL_CFREAD_H

#include <stdbool.h>

#ifndef SORREL_API
#define SORREL_API __attribute__((visibility("default"))) /* part of the exported interface */
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Called for each line with its key and value, never null, valid during the call only. A non-zero result stops the
 * parse, which still counts as a success.
 */
typedef int (*cfread_callback)(const char* key, const char* value, void* user_data);

/* One entry of a table; it belongs to its handle and lives until it is replaced or the handle is closed. */
typedef struct cfread_entry {
    int index;   /* its slot in the table */
    char* key;   /* own copy */
    char* value; /* own copy, never null */
    int number;  /* the value as a decimal number; 1 for "true", 0 for "false"; -1 for everything else and for numbers
                    of 2147483647 and above or -2147483648 and below */
} cfread_entry;

/* A parsed file. Read-only for callers: change it through the functions below. */
typedef struct cfread_handle {
    int count;             /* entries in the table */
    int capacity;          /* slots in the table */
    cfread_entry** table;  /* slot i holds the entry of index i, or null; null before the first entry */
    const char* file_name; /* the caller's own string, which must outlive the handle */
    cfread_callback callback;
    void* user_data;
    bool report_empty;
} cfread_handle;

/* Reads a file into a table. Lines with an empty key or an empty value are left out; a key that occurs again replaces
 * its entry. Returns a handle to be given to cfread_close, or null after any error. `fileName` is kept, not copied.
 */
SORREL_API cfread_handle* cfread_open(const char* fileName);

/* Reads a file and calls `callback` for each line that is no comment: lines whose key or value is empty only when the
 * low byte of `reportEmpty` is not 0. Returns 0, or -1 after an error; lines before the error have been delivered. With
 * a null callback the file is only checked.
 */
SORREL_API int cfread_parse_with_callback(const char* fileName, cfread_callback callback, void* userData,
                                          int reportEmpty);

/* The entry of exactly that key, or null when there is none or the key is null or empty. */
SORREL_API cfread_entry* cfread_find_entry(const cfread_handle* handle, const char* key);

/* Stores a copy of key and value in the lowest free slot, after removing the entry that the key has already. A null
 * value is stored as the empty string. Returns the new entry, or null when the handle is null, the key is null or empty
 * or memory is out; the previous entry is gone then. `key` and `value` may be those of the entry that is replaced.
 */
SORREL_API cfread_entry* cfread_set_entry(cfread_handle* handle, const char* key, const char* value);

/* Frees the handle with all its entries; null is ignored. */
SORREL_API void cfread_close(cfread_handle* handle);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif /* SORREL_CFREAD_H */
