// Where the process id has to be right, and how often the kernel is asked for it. Stands in for getpid(): to be
// included by one file of a program.
#ifndef SORREL_TESTS_PROCESS_ID_CHECKS_HPP
#define SORREL_TESTS_PROCESS_ID_CHECKS_HPP

#include "child_process.hpp"
#include "core/process_id.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

inline std::atomic<int> timesAsked{0};

inline pid_t askKernel() {
    return static_cast<pid_t>(syscall(SYS_getpid));
}

extern "C" pid_t fakeGetpid() __asm__("getpid");
extern "C" pid_t fakeGetpid() {
    ++timesAsked;
    return askKernel();
}

inline bool isProcessIdRight() {
    return sorrel::keptProcessId() == askKernel();
}

// How often the kernel is asked when the id is wanted five times.
inline int timesAskedByFive() {
    const int before = timesAsked;
    for (int i = 0; i < 5; ++i) {
        sorrel::keptProcessId();
    }
    return timesAsked - before;
}

// A child that the C library knows nothing of, with memory of its own.
template <class Function>
pid_t startClone(Function function) {
    const pid_t child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
    if (child == 0) {
        alarm(kChildPatienceSeconds);
        _exit(function() ? kChildPassed : 1);
    }
    return child;
}

inline bool isRightInClone() {
    return endOfChild(startClone(isProcessIdRight)) == kChildPassed;
}

// In each of them before and after it had children.
inline void expectRightInChildren() {
    EXPECT_TRUE(isProcessIdRight());
    EXPECT_TRUE(passesInChild([] {
        return isProcessIdRight() && passesInChild(isProcessIdRight) && isRightInClone() && isProcessIdRight();
    }));
    EXPECT_TRUE(passesInChild([] { return passesInChild(isProcessIdRight); })); // whose parent never wanted it
    EXPECT_TRUE(isRightInClone());
    EXPECT_TRUE(isProcessIdRight());
}

// The child shares the memory.
inline void expectRightAfterVfork() {
    const pid_t child = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): that is what is tried
    if (child == 0) {
        sorrel::keptProcessId();
        _exit(kChildPassed);
    }
    EXPECT_EQ(endOfChild(child), kChildPassed);
    EXPECT_TRUE(isProcessIdRight());
}

inline void expectRightInThreads() {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] { EXPECT_TRUE(isProcessIdRight()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::thread([] {
        EXPECT_TRUE(passesInChild(isProcessIdRight));
        EXPECT_TRUE(isProcessIdRight());
    }).join();
}

#endif // SORREL_TESTS_PROCESS_ID_CHECKS_HPP
