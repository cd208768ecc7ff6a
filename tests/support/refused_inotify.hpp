// inotify_init, as it is when a user has no instance left. To be included by one file of a program.
#ifndef SORREL_TESTS_REFUSED_INOTIFY_HPP
#define SORREL_TESTS_REFUSED_INOTIFY_HPP

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

inline bool refuseInotify = false;

extern "C" int fakeInotifyInit() __asm__("inotify_init");
extern "C" int fakeInotifyInit() {
    if (refuseInotify) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_init1, 0));
}

#endif // SORREL_TESTS_REFUSED_INOTIFY_HPP
