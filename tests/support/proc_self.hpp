// What the kernel says about this process: its descriptors and threads.
#ifndef SORREL_TESTS_PROC_SELF_HPP
#define SORREL_TESTS_PROC_SELF_HPP

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <sys/syscall.h>
#include <system_error>
#include <vector>

// The open descriptors, each with what it refers to: a path, "pipe:[123]", "anon_inode:inotify".
inline std::map<int, std::string> openDescriptors() {
    std::map<int, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        const bool isThisIteration = target.rfind("/proc/", 0) == 0 && target.find("/fd") != std::string::npos;
        if (!gone && !isThisIteration) {
            found[std::stoi(entry.path().filename().string())] = target;
        }
    }
    return found;
}

// The ids of the threads.
inline std::set<int> threadIds() {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        found.insert(std::stoi(entry.path().filename().string()));
    }
    return found;
}

// The number of the system call that a thread sleeps in; -1 when it runs. Under an emulator the numbers are not those
// of the program's processor.
inline long systemCallOf(int threadId) {
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/syscall");
    long number = -1;
    return file >> number ? number : -1;
}

// Whether a thread sleeps where threads wait for a lock.
inline bool waitsForLock(int threadId) {
#ifdef SORREL_TEST_KERNEL_FUTEX
    return systemCallOf(threadId) == SORREL_TEST_KERNEL_FUTEX;
#else
    return systemCallOf(threadId) == SYS_futex;
#endif
}

// Whether a thread sleeps in epoll_wait.
inline bool waitsForEvents(int threadId) {
#if defined(SORREL_TEST_KERNEL_EPOLL_PWAIT)
    return systemCallOf(threadId) == SORREL_TEST_KERNEL_EPOLL_PWAIT;
#elif defined(SYS_epoll_wait)
    return systemCallOf(threadId) == SYS_epoll_wait || systemCallOf(threadId) == SYS_epoll_pwait;
#else
    return systemCallOf(threadId) == SYS_epoll_pwait;
#endif
}

// The signals that a thread blocks: bit n - 1 for signal n.
inline std::uint64_t blockedSignals(int threadId) {
    std::ifstream status("/proc/self/task/" + std::to_string(threadId) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk:", 0) == 0) {
            return std::stoull(line.substr(7), nullptr, 16);
        }
    }
    return 0;
}

// The lines that describe a descriptor: for inotify each watch, for epoll each descriptor in the set.
inline std::vector<std::string> descriptorInfo(int fd) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
    std::vector<std::string> lines;
    for (std::string line; std::getline(info, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A watch of an inotify descriptor: the file's inode, and the events that are watched for.
struct InotifyWatch {
    std::uint64_t inode;
    unsigned int mask;
};

inline std::vector<InotifyWatch> inotifyWatches(int fd) {
    std::vector<InotifyWatch> watches;
    for (const std::string& line : descriptorInfo(fd)) {
        InotifyWatch watch = {};
        if (std::sscanf(line.c_str(), "inotify wd:%*x ino:%" SCNx64 " sdev:%*x mask:%x", &watch.inode, &watch.mask) ==
            2) {
            watches.push_back(watch);
        }
    }
    return watches;
}

#endif // SORREL_TESTS_PROC_SELF_HPP
