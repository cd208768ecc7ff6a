// Which call is the one to fail: whether the library makes it, and the how-manieth it is.
#include "failing_calls.hpp"

#include "stand_ins.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>
#include <unwind.h>

namespace {

// At once, and without memory from the heap.
__attribute__((format(printf, 2, 0))) void writeLine(const char* start, const char* format, va_list args) {
    const int savedErrno = errno;
    char line[2048];
    std::snprintf(line, sizeof line, "%s", start);
    const std::size_t used = std::strlen(line);
    std::vsnprintf(line + used, sizeof line - used - 1, format, args); // with room for the line feed
    std::strcat(line, "\n");
    syscall(SYS_write, STDOUT_FILENO, line, std::strlen(line));
    errno = savedErrno;
}

// Shared with forked children, so that one call fails among all of them.
struct Count {
    std::atomic<bool> on{false};
    std::atomic<int> calls{0};
    std::atomic<bool> hasFailed{false};
};

Count* theCount = nullptr;
failingCalls::Fault theFault;
thread_local bool isWalking __attribute__((tls_model("initial-exec"))) = false;
thread_local bool isPastStart __attribute__((tls_model("initial-exec"))) = false;
thread_local bool hasFailedHere __attribute__((tls_model("initial-exec"))) = false;

// The only thread that takes no signals.
bool isWorker() {
    std::uint64_t blocked = 0; // the kernel's form: bit n - 1 for signal n
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, nullptr, &blocked, sizeof blocked);
    return (blocked >> (SIGTERM - 1U) & 1U) != 0;
}

// A worker begins with its thread record; where there is no memory for that, the C++ runtime ends the process. So its
// calls count from its first lock or wait on.
bool isStarting(const char* function) {
    isPastStart = isPastStart || !isWorker() || std::strcmp(function, "pthread_mutex_lock") == 0 ||
                  std::strcmp(function, "epoll_wait") == 0;
    return !isPastStart;
}

// The addresses of a library that is loaded.
struct Object {
    std::uintptr_t begin = UINTPTR_MAX;
    std::uintptr_t end = 0;
    bool isLibrary = false; // else one that may call on its behalf

    bool contains(std::uintptr_t address) const { return address >= begin && address < end; }
};

std::array<Object, 8> objects;
std::size_t objectCount = 0;

Object objectOf(const dl_phdr_info& info) {
    Object object;
    for (int i = 0; i < info.dlpi_phnum; ++i) {
        const auto& header = info.dlpi_phdr[i];
        if (header.p_type == PT_LOAD) {
            const std::uintptr_t begin = info.dlpi_addr + header.p_vaddr;
            object.begin = std::min(object.begin, begin);
            object.end = std::max(object.end, begin + header.p_memsz);
        }
    }
    return object;
}

int noteObject(dl_phdr_info* info, std::size_t /*size*/, void* /*data*/) {
    Object object = objectOf(*info);
    object.isLibrary = std::strstr(info->dlpi_name, "/libsorrel.so") != nullptr;
    bool isNoted = object.isLibrary || object.contains(reinterpret_cast<std::uintptr_t>(&theFault)); // of this one
    for (const char* const name : {"/libc.so", "/libstdc++.so", "/libgcc_s.so", "/ld-linux"}) {
        isNoted = isNoted || std::strstr(info->dlpi_name, name) != nullptr;
    }
    if (isNoted) {
        objects.at(objectCount++) = object;
    }
    return 0;
}

// Goes up the stack to the first frame that is nobody's middleman.
_Unwind_Reason_Code findCaller(_Unwind_Context* context, void* isLibrary) {
    const std::uintptr_t address = _Unwind_GetIP(context);
    for (std::size_t i = 0; i < objectCount; ++i) {
        if (objects[i].contains(address)) {
            *static_cast<bool*>(isLibrary) = objects[i].isLibrary;
            return objects[i].isLibrary ? _URC_END_OF_STACK : _URC_NO_REASON;
        }
    }
    return _URC_END_OF_STACK;
}

bool isCalledByLibrary() {
    bool isLibrary = false;
    isWalking = true;
    _Unwind_Backtrace(findCaller, &isLibrary);
    isWalking = false;
    return isLibrary;
}

} // namespace

void failingCalls::choose(const Fault& fault) {
    void* const memory = mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    theFault = fault;
    dl_iterate_phdr(noteObject, nullptr);
    theCount = new (memory) Count;
}

void failingCalls::setCounting(bool on) {
    hasFailedHere = false; // this thread has reported it
    theCount->on = on;
}

bool failingCalls::hasFailed() {
    return theCount->hasFailed;
}

long failingCalls::liveBlocks() {
    return blocks;
}

void failingCalls::report(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeLine("", format, args);
    va_end(args);
}

bool failingCalls::failsNow(const char* function) {
    if (theCount == nullptr || !theCount->on || isWalking || isStarting(function) ||
        std::strcmp(function, theFault.function) != 0) {
        return false;
    }
    const int before = errno;
    const bool fails = isCalledByLibrary() && ++theCount->calls == theFault.number;
    errno = fails ? theFault.error : before;
    if (fails) {
        theCount->hasFailed = true;
        hasFailedHere = true;
        report("failed once");
    }
    return fails;
}

// dlsym is among the functions that are stood in for.
void* failingCalls::realFunction(const char* name) {
    using Dlsym = void*(void*, const char*);
    static auto* const realDlsym = reinterpret_cast<Dlsym*>(dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34"));
    return realDlsym(RTLD_NEXT, name);
}

// The call of the worker may have failed just before the counting ended, and be reported just after that.
void failingCalls::noteMessage(int priority, const char* format, va_list args) {
    if (theCount != nullptr && (theCount->on || hasFailedHere) && priority <= LOG_WARNING) {
        writeLine("logged ", format, args);
    }
}
