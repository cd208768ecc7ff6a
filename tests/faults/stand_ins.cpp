// Stand in for the functions of libc that can fail.
#include "stand_ins.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <pthread.h>
#include <sys/types.h>

using failingCalls::blocks;
using failingCalls::failsNow;
using failingCalls::noteMessage;
using failingCalls::realFunction;

struct epoll_event;

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}

namespace {

void* counted(void* memory) {
    blocks += memory != nullptr ? 1 : 0;
    return memory;
}

} // namespace

extern "C" {

// The two names differ, so that no attributes of the headers are inherited. A function with further arguments stands in
// for one with variable arguments as well: on Linux they are passed alike.
#define SORREL_STAND_IN(result, function, symbol, failure, parameters, arguments)                                      \
    result fake_##symbol parameters __asm__(#symbol);                                                                  \
    result fake_##symbol parameters {                                                                                  \
        using Function = result parameters;                                                                            \
        static auto* const real = reinterpret_cast<Function*>(realFunction(#symbol));                                  \
        return failsNow(#function) ? failure : real arguments;                                                         \
    }

// For calls that do what they should although they fail.
#define SORREL_STAND_IN_AFTER(result, function, failure, parameters, arguments)                                        \
    result fake_##function parameters __asm__(#function);                                                              \
    result fake_##function parameters {                                                                                \
        using Function = result parameters;                                                                            \
        static auto* const real = reinterpret_cast<Function*>(realFunction(#function));                                \
        const result done = real arguments;                                                                            \
        return failsNow(#function) ? failure : done;                                                                   \
    }

using Path = const char*;
using Buffer = void*;
using Size = std::size_t;
using ThreadMain = void*(void*);

SORREL_STAND_IN(int, open, open, -1, (Path path, int flags, unsigned int mode), (path, flags, mode))
SORREL_STAND_IN(int, open, open64, -1, (Path path, int flags, unsigned int mode), (path, flags, mode))
SORREL_STAND_IN(FILE*, fopen, fopen, nullptr, (Path path, Path mode), (path, mode))
SORREL_STAND_IN(FILE*, fopen, fopen64, nullptr, (Path path, Path mode), (path, mode))
SORREL_STAND_IN(FILE*, fdopen, fdopen, nullptr, (int fd, Path mode), (fd, mode))
SORREL_STAND_IN(int, fstat, fstat, -1, (int fd, Buffer status), (fd, status))
SORREL_STAND_IN(int, fstat, fstat64, -1, (int fd, Buffer status), (fd, status))
SORREL_STAND_IN(int, fcntl, fcntl, -1, (int fd, int command, long value), (fd, command, value))
SORREL_STAND_IN(int, fcntl, fcntl64, -1, (int fd, int command, long value), (fd, command, value))
SORREL_STAND_IN(int, access, access, -1, (Path path, int mode), (path, mode))
SORREL_STAND_IN(ssize_t, readlink, readlink, -1, (Path path, char* text, Size size), (path, text, size))
SORREL_STAND_IN(ssize_t, readlink, __readlink_chk, -1, (Path path, char* text, Size size, Size room),
                (path, text, size, room))
SORREL_STAND_IN(ssize_t, read, read, -1, (int fd, Buffer buffer, Size size), (fd, buffer, size))
SORREL_STAND_IN(ssize_t, read, __read_chk, -1, (int fd, Buffer buffer, Size size, Size room), (fd, buffer, size, room))
SORREL_STAND_IN(ssize_t, write, write, -1, (int fd, const void* buffer, Size size), (fd, buffer, size))
SORREL_STAND_IN(int, pipe, pipe, -1, (int* ends), (ends))
SORREL_STAND_IN(int, epoll_create, epoll_create, -1, (int size), (size))
SORREL_STAND_IN(int, epoll_ctl, epoll_ctl, -1, (int epoll, int operation, int fd, epoll_event* event),
                (epoll, operation, fd, event))
SORREL_STAND_IN(int, epoll_wait, epoll_wait, -1, (int epoll, epoll_event* events, int size, int timeout),
                (epoll, events, size, timeout))
SORREL_STAND_IN(int, inotify_init, inotify_init, -1, (void), ())
SORREL_STAND_IN(int, inotify_add_watch, inotify_add_watch, -1, (int fd, Path path, std::uint32_t mask),
                (fd, path, mask))
SORREL_STAND_IN(int, inotify_rm_watch, inotify_rm_watch, -1, (int fd, int watch), (fd, watch))
SORREL_STAND_IN(void*, dlopen, dlopen, nullptr, (Path path, int flags), (path, flags))
SORREL_STAND_IN(void*, dlsym, dlsym, nullptr, (Buffer handle, Path symbol), (handle, symbol))
SORREL_STAND_IN(int, pthread_create, pthread_create, errno,
                (pthread_t * thread, const pthread_attr_t* attributes, ThreadMain* start, void* argument),
                (thread, attributes, start, argument))
SORREL_STAND_IN(int, pthread_sigmask, pthread_sigmask, errno, (int how, const void* signals, Buffer before),
                (how, signals, before))
SORREL_STAND_IN(int, pthread_mutex_lock, pthread_mutex_lock, errno, (pthread_mutex_t * mutex), (mutex))
SORREL_STAND_IN(int, pthread_mutex_trylock, pthread_mutex_trylock, errno, (pthread_mutex_t * mutex), (mutex))
SORREL_STAND_IN(int, pthread_mutex_init, pthread_mutex_init, errno,
                (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes), (mutex, attributes))
SORREL_STAND_IN(int, pthread_mutexattr_init, pthread_mutexattr_init, errno, (pthread_mutexattr_t * attributes),
                (attributes))
SORREL_STAND_IN(int, pthread_mutexattr_settype, pthread_mutexattr_settype, errno,
                (pthread_mutexattr_t * attributes, int type), (attributes, type))
SORREL_STAND_IN(int, vsnprintf, vsnprintf, -1, (char* text, Size size, Path format, va_list args),
                (text, size, format, args))
SORREL_STAND_IN(int, vsnprintf, __vsnprintf_chk, -1,
                (char* text, Size size, int flag, Size room, Path format, va_list args),
                (text, size, flag, room, format, args))

SORREL_STAND_IN_AFTER(int, close, -1, (int fd), (fd))
SORREL_STAND_IN_AFTER(int, fclose, EOF, (FILE * file), (file))
SORREL_STAND_IN_AFTER(int, dlclose, -1, (Buffer handle), (handle))

char* fakeFgets(char* text, int size, FILE* file) __asm__("fgets");
char* fakeFgets(char* text, int size, FILE* file) {
    using Function = char*(char*, int, FILE*);
    static auto* const real = reinterpret_cast<Function*>(realFunction("fgets"));
    if (!failsNow("fgets")) {
        return real(text, size, file);
    }
    const int error = errno;
    std::fputc('x', file); // writing to a file that is open for reading sets its error flag
    errno = error;
    return nullptr;
}

char* fakeFgetsChk(char* text, std::size_t room, int size, FILE* file) __asm__("__fgets_chk");
char* fakeFgetsChk(char* text, std::size_t /*room*/, int size, FILE* file) {
    return fakeFgets(text, size, file);
}

void fakeSyslog(int priority, const char* format, ...) __asm__("syslog") __attribute__((format(printf, 2, 3)));
void fakeSyslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    noteMessage(priority, format, args);
    va_end(args);
}

void fakeSyslogChk(int priority, int flag, const char* format, ...) __asm__("__syslog_chk")
    __attribute__((format(printf, 3, 4)));
void fakeSyslogChk(int priority, int /*flag*/, const char* format, ...) {
    va_list args;
    va_start(args, format);
    noteMessage(priority, format, args);
    va_end(args);
}

void* malloc(std::size_t size) {
    return failsNow("malloc") ? nullptr : counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return failsNow("malloc") ? nullptr : counted(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    if (failsNow("malloc")) {
        return nullptr;
    }
    void* const result = __libc_realloc(memory, size);
    if (memory == nullptr) {
        counted(result);
    } else if (result == nullptr && size == 0) {
        --blocks;
    }
    return result;
}

void free(void* memory) {
    blocks -= memory != nullptr ? 1 : 0;
    __libc_free(memory);
}

} // extern "C"
