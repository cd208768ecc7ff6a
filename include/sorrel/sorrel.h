/* The functions that applications call, from C and C++.
 *
 * A minimal program:
 *
 *     sorrel_component* net = sorrel_create_component("net", SR_INFO, "64=INFO,128=DEBUG");
 *     sorrel_init(net, "main");
 *     _sorrel(net, SR_INFO, "listening on port %d", port);
 *
 * Every function may be called from any thread, and, where nothing else is said, uses the one configured logger of the
 * process. The first such call builds it: it reads the configuration, loads the targets and starts the thread that
 * watches the configuration file. The functions with the suffix _nosorrel use a second logger, which reads no
 * configuration and starts no thread.
 *
 * The logging functions report nothing: with a null component, a null level, or a level that the component's mask does
 * not enable, no target gets a message. (Naming and tracing take place all the same.) None of them may be called from a
 * signal handler. They all leave errno as it was, and %m in a format gives the caller's errno.
 *
 * Exceptions cross these functions: std::bad_alloc when memory is out, std::system_error when a mutex cannot be locked,
 * and whatever a log target throws. Where a string is said to be "not null", a null pointer gives std::logic_error and
 * changes nothing. A null format or thread name is a mistake that is not looked for. Build C callers with -fexceptions
 * where that matters.
 *
 * Once the process exits and the logger is destroyed, every function may still be called, and does nothing.
 */
#ifndef SORREL_SORREL_H
#define SORREL_SORREL_H

#include <sorrel/level.h>

#ifdef __cplusplus
#include <string>
#include <utility>
#include <vector>
extern "C" {
#endif

/* A named source of messages with a 32-bit level mask. Opaque in C; <sorrel/component.hpp> shows it to C++. Components
 * belong to the library and are never freed.
 */
typedef struct sorrel_component sorrel_component;

/* Logs one message: printf-like `format`, cut at 2047 bytes. Before the arguments are looked at, the message is dropped
 * unless the level's mask shares a bit with the component's mask. Every loaded target has received the message when the
 * call returns; targets are called one thread at a time, on the calling thread.
 */
SORREL_API void _sorrel(sorrel_component* component, sorrel_level* level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* Logs for programs that were written for syslog: as `_sorrel`, and also to syslog while no loaded target writes there
 * and the environment variable SORREL_VERBOSE_STARTUP is "1". The text for syslog is filtered by neither level nor
 * mask.
 *
 * The text is formatted even when the level does not pass, in one buffer for the whole process: calls that run at the
 * same time may mix their texts. The formatted text then serves as the format of a second formatting without arguments:
 * a percent sign for the targets is written %%%%, and directives in the text are rendered with 0 or an empty string. Do
 * not pass text from outside through this function: use `_sorrel` with "%s".
 */
SORREL_API void sor_syslog(sorrel_component* component, sorrel_level* level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* Logs `length` bytes at `data` as a hex dump, one message for each 16 bytes: offset, bytes in hexadecimal, characters.
 * A null `data` logs "<NULL>"; a length of 0 logs nothing.
 */
SORREL_API void sorrel_dump(sorrel_component* component, sorrel_level* level, const void* data, unsigned int length);

/* Names the calling thread (the name is copied) and logs "----- Thread %s started." at
 * SR_ENTERLEAVE; with a null component it only names. Call it again to rename.
 *
 * The first call in a process also applies the program's syslog level from /etc/tanglelog.cfg (an entry is appended
 * where there is none), which re-opens syslog under the program's base name and takes over SIGUSR1; see
 * <sorrel/tangle_log.h>. Two first calls at the same time may both do it.
 */
SORREL_API void sorrel_init(sorrel_component* component, const char* threadName);

/* Names the calling thread like sorrel_init and logs nothing. Uses the logger without configuration. The first call in
 * a process does with syslog, /etc/tanglelog.cfg and SIGUSR1 what the first sorrel_init does.
 */
SORREL_API void sorrel_init_nosorrel(const char* threadName);

/* Logs "----- Thread %s ending." at SR_ENTERLEAVE and renames the calling thread to "<thrd done>". */
SORREL_API void sorrel_done(sorrel_component* component);

/* Notes that the calling thread has entered a function (the name is copied, not null), logs "entering" at
 * SR_ENTERLEAVE and then raises the thread's depth by one. Until it is left, the name goes along with every message of
 * the thread.
 */
SORREL_API void sorrel_enter_function(sorrel_component* component, const char* functionName);

/* Lowers the thread's depth by one, logs "leaving" at SR_ENTERLEAVE and forgets the innermost function. Without a
 * matching enter the depth becomes negative; "leaving" is logged all the same.
 */
SORREL_API void sorrel_leave_function(sorrel_component* component);

/* Creates the component `name` and returns it, never null. Its mask is that of `level`, or 0 when `level` is null.
 * `descriptions` gives its mask bits printable names: "8=ERR,16=WARN". Both strings are copied; not null.
 *
 * When the name exists already (an earlier call, or a `component` line of the configuration file):
 *  - with a non-empty `descriptions` the existing component is returned, the names are appended to its own, and its
 *    mask stays as it is: `level` is not used;
 *  - with an empty one a NEW component is returned that nobody finds by its name: neither the configuration file nor
 *    sorrel_set_component_level reaches it. Pass descriptions when the configuration shall steer the mask.
 *
 * When memory for a component is out, one shared stand-in named "OOM-Ohno!" is returned, which lets everything pass.
 */
SORREL_API sorrel_component* sorrel_create_component(const char* name, sorrel_level* level, const char* descriptions);

/* Names the application (not null): re-opens syslog under this name, re-reads the configuration, now from the file
 * sorrel-NAME.cfg when it exists, and tells every target. The watch moves to that file if it exists at this moment, and
 * never moves back. The name that is set already only re-opens syslog. The name is part of a file name that decides
 * which code is loaded: never take it from untrusted input.
 *
 * From inside a target it returns at once; the re-read follows when the operation of the target has returned.
 *
 * Returns the library's own copy, the string that was handed to openlog(3); it lasts as long as the process.
 */
SORREL_API const char* sorrel_set_applicationname(const char* name);

/* The same for the logger without configuration: stores the name and re-opens syslog, nothing else. */
SORREL_API const char* sorrel_set_applicationname_nosorrel(const char* name);

#ifdef __cplusplus
} /* extern "C" */

namespace sorrel {

/* The component of that name, or null. Takes no lock and never waits. */
SORREL_API sorrel_component* sorrel_get_component_by_name(const std::string& name);

/* A copy of the component's name, or an empty string for null. */
SORREL_API std::string sorrel_get_name_by_component(const sorrel_component* component);

/* Appends the names of all components, in ascending byte-wise order, to what `names` holds. */
SORREL_API void sorrel_get_component_names(std::vector<std::string>& names);

/* Appends copies of the component's (mask, name) pairs, in the order in which they were given; an unknown component
 * leaves `descriptions` as it is.
 */
SORREL_API void sorrel_get_level_descriptions(const std::string& component,
                                              std::vector<std::pair<unsigned int, std::string>>& descriptions);

/* Sets the mask of the component of that name; an unknown name is ignored. Targets are not told. */
SORREL_API void sorrel_set_component_level(const std::string& name, unsigned int mask);

/* The mask of the component of that name, or 0 when there is none. */
SORREL_API unsigned int sorrel_get_component_level(const std::string& name);

} /* namespace sorrel */

#endif /* __cplusplus */
#endif /* SORREL_SORREL_H */
