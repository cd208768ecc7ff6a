// The legacy interface: logging straight to syslog under a level that one shared file holds for every program. It is
// also the channel through which the library reports about itself. C++ only.
#ifndef SORREL_TANGLE_LOG_H
#define SORREL_TANGLE_LOG_H

#ifndef SORREL_API
#define SORREL_API __attribute__((visibility("default"))) /* part of the exported interface */
#endif

namespace sorrel {

// Writes a printf-like text, cut at 1023 bytes, to syslog at a syslog priority (0 emergency to 7 debug), provided that
// the environment variable SORREL_VERBOSE_STARTUP is exactly "1"; otherwise does nothing. The variable is read once
// in a process, at the first call of a function here, and never again. Any thread may call it; takes no lock; leaves
// errno as it was.
SORREL_API void sorrel_tangleLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Opens syslog under the program's base name (LOG_PID, LOG_NDELAY, LOG_USER) and lets pass what the program's line in
// /etc/tanglelog.cfg says: "myprog 5" lets the priorities 0 to 5 pass. A program without a line (or with a negative
// level) gets all priorities, and the line "PROGRAM 7" is appended where the file may be written. The first line that
// contains the program's name anywhere is taken; when it holds no level, each start appends one more line behind it.
//
// Replaces the process's handler of SIGUSR1: the signal makes the program read its level again. The handler reads a
// file and uses syslog, as it always did; do not send the signal to a process that may be inside syslog(3) or malloc(3)
// unless you accept that it may hang.
//
// The logger calls this at the first sorrel_init, or sorrel_init_nosorrel, of a process. Reports no errors.
SORREL_API void sorrel_tangleLogInit();

} // namespace sorrel

#endif // SORREL_TANGLE_LOG_H
