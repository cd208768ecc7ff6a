/* Levels: how important a message is, and which bit of a component's mask it belongs to.
 *
 * A level record never moves and lives until the process ends, so plain pointers to it may be kept and compared from
 * any thread. Nobody but the library owns or frees one. Records are immutable: reading them needs no lock.
 */
#ifndef SORREL_LEVEL_H
#define SORREL_LEVEL_H

#ifndef SORREL_API
#define SORREL_API __attribute__((visibility("default"))) /* part of the exported interface */
#endif

#ifdef __cplusplus
#include <initializer_list>
extern "C" {
#endif

/* One level. `numeric` 0 to 7 are the syslog priorities emergency to debug, 8 is enter/leave tracing, 32 marks a level
 * that is not a single priority (a combination, or "all"). `mask` is the set of bits that the level stands for; a
 * message passes when it shares a bit with the mask of its component, so nothing passes at a level of mask 0.
 */
typedef struct sorrel_level {
    int numeric;
    unsigned int mask;
} sorrel_level;

/* A borrowed array of levels: `first` points to `count` pointers, none of them null. There is no terminator. */
struct sorrel_level_collection {
    sorrel_level* const* first;
    unsigned int count;
};

/* The predefined levels, set while the library is loaded. SR_ERR and SR_ERROR are one record, and so are SR_WARNING and
 * SR_WARN. Never assign to these pointers.
 */
extern SORREL_API sorrel_level* SR_EMERG;      /*  0, 0x00000001 */
extern SORREL_API sorrel_level* SR_ALERT;      /*  1, 0x00000002 */
extern SORREL_API sorrel_level* SR_CRIT;       /*  2, 0x00000004 */
extern SORREL_API sorrel_level* SR_ERR;        /*  3, 0x00000008 */
extern SORREL_API sorrel_level* SR_ERROR;      /*  the same record as SR_ERR */
extern SORREL_API sorrel_level* SR_WARNING;    /*  4, 0x00000010 */
extern SORREL_API sorrel_level* SR_WARN;       /*  the same record as SR_WARNING */
extern SORREL_API sorrel_level* SR_NOTICE;     /*  5, 0x00000020 */
extern SORREL_API sorrel_level* SR_INFO;       /*  6, 0x00000040 */
extern SORREL_API sorrel_level* SR_DEBUG;      /*  7, 0x00000080 */
extern SORREL_API sorrel_level* SR_ENTERLEAVE; /*  8, 0x00000100 */
extern SORREL_API sorrel_level* SR_ALL;        /* 32, 0xffffffff */

/* Creates a level with this numeric and the one mask bit of that number: 0 to 31 give their bit. The shift count is the
 * low eight bits of `numeric`, and counts from 32 to 255 give an empty mask (32 gives 0, -1 gives 0, 257 gives 0x2).
 * Every call makes a new record that is kept until the process ends: create a level once and keep the pointer.
 *
 * Any thread may call it. Never returns null; throws std::system_error when the store cannot be locked and
 * std::bad_alloc when memory is out, and then nothing was created.
 */
SORREL_API sorrel_level* sorrel_level_create(int numeric);

/* Creates a level of numeric 32 whose mask is the union of the masks in the collection. An empty collection gives mask
 * 0. The collection is only read during the call; neither it nor any element may be null. Threads and errors: as
 * sorrel_level_create.
 */
SORREL_API sorrel_level* sorrel_bitwise_or_collection(const struct sorrel_level_collection* levels);

/* The syslog priority of a level: its numeric when that is 0 to 6; 7 (debug) for every other numeric and for null. */
SORREL_API int sorrel_level_to_prio(sorrel_level* level);

#ifdef __cplusplus
} /* extern "C" */

namespace sorrel {

using ::sorrel_bitwise_or_collection;
using ::sorrel_level_create;

/* Creates a level with exactly these two values. Threads, lifetime and errors: as the one-argument form. */
SORREL_API sorrel_level* sorrel_level_create(int numeric, unsigned int mask);

/* The mask of a level, which must not be null. */
SORREL_API unsigned int sorrel_level_to_mask(const sorrel_level* level);

/* The numeric of a level, which must not be null. */
SORREL_API int sorrel_level_to_numeric(const sorrel_level* level);

/* The same value as sorrel_level_to_prio; null gives 7. */
SORREL_API int sorrel_level_to_syslog_prio(sorrel_level* level);

/* The same as the C function, for a list in braces: sorrel_bitwise_or_collection({SR_ERR, SR_WARN}). */
inline sorrel_level* sorrel_bitwise_or_collection(std::initializer_list<sorrel_level*> levels) {
    const sorrel_level_collection collection = {levels.begin(),
                                                static_cast<unsigned int>(levels.end() - levels.begin())};
    return ::sorrel_bitwise_or_collection(&collection);
}

} /* namespace sorrel */

using sorrel::sorrel_level_create;

#endif /* __cplusplus */
#endif /* SORREL_LEVEL_H */
