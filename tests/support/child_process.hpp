// Children that are forked without exec, and end by themselves when they hang.
#ifndef SORREL_TESTS_CHILD_PROCESS_HPP
#define SORREL_TESTS_CHILD_PROCESS_HPP

#include "proc_self.hpp"
#include "sanitizers.hpp"
#include "wait_until.hpp"

#include <algorithm>
#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

// Whether a child may allocate memory when other threads of its parent did so at the moment of the fork. The allocators
// of the address and the thread sanitizer leave their locks in the child as those threads held them.
constexpr bool kChildrenMayAllocate = !kAddressSanitized && !kThreadSanitized;

constexpr unsigned int kChildPatienceSeconds = 20;

// What a child ends with when all went well. Not 0, which is also what a process ends with by accident.
constexpr int kChildPassed = 42;

// Waits for a child. Its exit code, or the negative number of the signal that ended it: -SIGALRM when it hung.
inline int endOfChild(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return -1000;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

inline bool doOtherThreadsSleep() {
    const std::set<int> threads = threadIds();
    return std::all_of(threads.begin(), threads.end(),
                       [](int thread) { return thread == gettid() || systemCallOf(thread) != -1; });
}

// Call it before a fork. Where it matters what the other threads do at that moment, waits until they all sleep: the
// worker may still be reading its file.
inline void letOtherThreadsSettle() {
    if (!kChildrenMayAllocate) {
        waitUntil(doOtherThreadsSleep);
    }
}

// Forks a child that does one thing and ends at once: with kChildPassed when that returned true. Whatever the other
// threads do at that moment.
template <class Function>
pid_t startChildAtOnce(Function function) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kChildPatienceSeconds);
        _exit(function() ? kChildPassed : 1);
    }
    return child;
}

// The same, when the other threads have settled.
template <class Function>
pid_t startChild(Function function) {
    letOtherThreadsSettle();
    return startChildAtOnce(function);
}

template <class Function>
bool passesInChild(Function function) {
    return endOfChild(startChild(function)) == kChildPassed;
}

#endif // SORREL_TESTS_CHILD_PROCESS_HPP
