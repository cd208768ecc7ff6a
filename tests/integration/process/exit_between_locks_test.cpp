// The end of a process while another thread has just taken locks: it finds the logger gone, and gives them back.
#include "exit_fixture.hpp"

#include <atomic>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <ostream>
#include <pthread.h>

using testing::EndsWith;
using testing::ExitedWithCode;

namespace {

using MutexFunction = int (*)(pthread_mutex_t*);

struct Operation {
    const char* name;
    int locks; // after which the thread stops
    void (*run)();
};

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
    return out << operation.name;
}

std::string nameOf(const testing::TestParamInfo<Operation>& info) {
    return info.param.name;
}

const Operation kOperations[] = {
    {"Message", 1, [] { say("late"); }},
    {"LevelOfAComponent", 1, [] { sorrel::sorrel_set_component_level("net", 1); }},
    {"CreationWithOneLock", 1, [] { sorrel_create_component("late", SR_INFO, ""); }},
    {"CreationWithBothLocks", 2, [] { sorrel_create_component("late", SR_INFO, ""); }},
};

thread_local int locksUntilStop = 0;                                       // 0 for a thread that does not stop
std::vector<pthread_mutex_t*>& taken = *new std::vector<pthread_mutex_t*>; // lives as long as the process
std::atomic<bool> hasStopped{false};

bool loggerIsGone() {
    return sorrel::sorrel_get_component_by_name("net") == nullptr;
}

int noteTaken(int rc, pthread_mutex_t* mutex) {
    if (rc == 0 && locksUntilStop > 0) {
        taken.push_back(mutex);
        if (--locksUntilStop == 0) {
            hasStopped = true;
            waitUntil(loggerIsGone);
        }
    }
    return rc;
}

bool isFree(pthread_mutex_t* mutex) {
    return pthread_mutex_trylock(mutex) == 0 && pthread_mutex_unlock(mutex) == 0;
}

void expectAllFree() {
    std::thread([] { // the exiting thread might take a lock that it holds
        for (pthread_mutex_t* const mutex : taken) {
            expectAtExit(waitUntil([mutex] { return isFree(mutex); }), "the lock is free");
        }
    })
        .join();
    std::fputs("all free\n", stderr);
}

// The sanitizer's function, where there is one, else that of libc.
MutexFunction realFunction(MutexFunction interceptor, const char* name) {
    return interceptor != nullptr ? interceptor : reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
}

class ExitBetweenLocks : public ExitFixture, public testing::WithParamInterface<Operation> {};

} // namespace

// Where a sanitizer is linked into the program, it has to see the calls.
extern "C" __attribute__((weak)) int __interceptor_pthread_mutex_lock(pthread_mutex_t*);
extern "C" __attribute__((weak)) int __interceptor_pthread_mutex_trylock(pthread_mutex_t*);

extern "C" int fakeMutexLock(pthread_mutex_t* mutex) __asm__("pthread_mutex_lock");
extern "C" int fakeMutexLock(pthread_mutex_t* mutex) {
    static const MutexFunction real = realFunction(__interceptor_pthread_mutex_lock, "pthread_mutex_lock");
    return noteTaken(real(mutex), mutex);
}

extern "C" int fakeMutexTryLock(pthread_mutex_t* mutex) __asm__("pthread_mutex_trylock");
extern "C" int fakeMutexTryLock(pthread_mutex_t* mutex) {
    static const MutexFunction real = realFunction(__interceptor_pthread_mutex_trylock, "pthread_mutex_trylock");
    return noteTaken(real(mutex), mutex);
}

TEST_P(ExitBetweenLocks, GivesThemBack) {
    EXPECT_EXIT(
        {
            start();
            std::thread([] {
                locksUntilStop = GetParam().locks;
                GetParam().run();
            }).detach();
            expectAtExit(waitUntil([] { return hasStopped.load(); }), "the thread has the locks");
            lastWords.speak = expectAllFree;
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("all free\n"));
}

INSTANTIATE_TEST_SUITE_P(Of, ExitBetweenLocks, testing::ValuesIn(kOperations), nameOf);
