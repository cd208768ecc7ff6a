// A program that closes the library's descriptors and opens others, which get their numbers.
#ifndef SORREL_TESTS_CLOSED_DESCRIPTORS_FIXTURE_HPP
#define SORREL_TESTS_CLOSED_DESCRIPTORS_FIXTURE_HPP

#include "child_process.hpp"
#include "dial_fixture.hpp"
#include "sanitizers.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

struct Foreign {
    int fd;
    std::string what; // as in /proc/self/fd
};

inline std::vector<Foreign> foreigners;
inline int foreignPipe = -1; // the end from which it is read

inline constexpr char kInotify[] = "anon_inode:inotify";

// Whether all are still open, nobody has written to the pipe or to a file, and each inotify has its watch.
inline bool areForeignersUntouched() {
    const std::map<int, std::string> open = openDescriptors();
    for (const Foreign& foreign : foreigners) {
        const auto found = open.find(foreign.fd);
        struct stat status = {};
        if (found == open.end() || found->second != foreign.what || fstat(foreign.fd, &status) != 0 ||
            status.st_size != 0 || (foreign.what == kInotify && inotifyWatches(foreign.fd).size() != 1)) {
            return false;
        }
    }
    char byte = 0;
    return foreignPipe == -1 || (read(foreignPipe, &byte, 1) == -1 && errno == EAGAIN);
}

// Looks at them after the logger is gone.
struct LastLook {
    LastLook() = default;
    LastLook(const LastLook&) = delete;
    LastLook& operator=(const LastLook&) = delete;
    ~LastLook() {
        if (!foreigners.empty()) {
            std::fputs(areForeignersUntouched() ? "untouched\n" : "touched\n", stderr);
        }
    }
};

inline LastLook lastLook;

class ClosedDescriptors : public DialFixture {
protected:
    // To close a descriptor under another thread is a race by itself, whatever the library does.
    void SetUp() override {
        if (kThreadSanitized) {
            GTEST_SKIP() << "races by its nature";
        }
    }

    // Sends the first message; remembers the descriptors that it cost.
    static std::vector<int> startLogging() {
        alarm(kChildPatienceSeconds);
        const std::map<int, std::string> before = openDescriptors();
        say("first");
        std::vector<int> ours;
        for (const auto& descriptor : openDescriptors()) {
            if (before.count(descriptor.first) == 0) {
                ours.push_back(descriptor.first);
            }
        }
        return ours;
    }

    static void say(const char* text) { _sorrel(buildLogger(), SR_INFO, "%s", text); }

    // All but the standard streams and, for the tests that listen to it, the sockets of the system log.
    static void closeAll() {
        for (const auto& descriptor : openDescriptors()) {
            if (descriptor.first > STDERR_FILENO && descriptor.second.rfind("socket:", 0) != 0) {
                close(descriptor.first);
            }
        }
    }

    // Gives these numbers to what `open` returns.
    template <class Open>
    static void reuse(const std::vector<int>& numbers, Open open) {
        for (const int number : numbers) {
            const int fd = open();
            if (fd != number) {
                dup2(fd, number);
                close(fd);
            }
            foreigners.push_back({number, ""});
        }
        const std::map<int, std::string> now = openDescriptors();
        for (Foreign& foreign : foreigners) {
            foreign.what = now.at(foreign.fd);
        }
    }

    // From where no number of the library's is taken.
    static int outOfTheWay(int fd) {
        const int moved = fcntl(fd, F_DUPFD, 500);
        close(fd);
        return moved;
    }

    static int openFile() {
        char path[] = "/tmp/sorrel-foreign-XXXXXX";
        const int fd = mkstemp(path);
        unlink(path);
        return outOfTheWay(fd);
    }

    static int openEpoll() { return outOfTheWay(epoll_create1(EPOLL_CLOEXEC)); }

    // With a watch, which has the number of the library's own.
    static int openInotify() {
        const int fd = inotify_init1(IN_CLOEXEC);
        inotify_add_watch(fd, "/", IN_CREATE);
        return outOfTheWay(fd);
    }

    // With others of their kind on all numbers of the library's, looks at them after the exit, or in a forked child.
    static void exitWithForeigners(int (*open)()) {
        const std::vector<int> ours = startLogging();
        closeAll();
        reuse(ours, open);
        sorrel_set_applicationname("app");
        std::exit(EXIT_SUCCESS);
    }
    static void expectUntouchedByFork(int (*open)()) {
        const std::vector<int> ours = startLogging();
        closeAll();
        reuse(ours, open);
        EXPECT_TRUE(passesInChild([] { return areForeignersUntouched(); }));
        foreigners.clear();
    }

    static int endOfPipe(const std::vector<int>& ours, int accessMode) {
        const std::map<int, std::string> open = openDescriptors();
        const auto found = std::find_if(ours.begin(), ours.end(), [&open, accessMode](int fd) {
            return open.at(fd).rfind("pipe:", 0) == 0 && (fcntl(fd, F_GETFL) & O_ACCMODE) == accessMode;
        });
        return found != ours.end() ? *found : -1;
    }

    static bool isAlone() { return threadIds().size() == 1; }

    // Forks a child that stops in this function, once, and goes on: the wait of its worker is interrupted. How it ends.
    template <class Function>
    static int endOfStoppedChild(Function function) {
        const pid_t child = startChild(function);
        int status = 0;
        while (waitpid(child, &status, WUNTRACED) == child && WIFSTOPPED(status)) {
            kill(child, SIGCONT);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    // Puts a pipe, and an epoll that waits for it, on these numbers; the lowest is the epoll's, the others are ends
    // from which is read. Gives the end that is written to.
    static int openOwnEventLoop(const std::vector<int>& numbers) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_NONBLOCK) != 0) {
            return -1;
        }
        const int readEnd = outOfTheWay(ends[0]);
        const int writeEnd = outOfTheWay(ends[1]);
        const int epoll = openEpoll();
        for (const int number : numbers) {
            dup2(number == numbers.front() ? epoll : readEnd, number);
            if (number != numbers.front()) {
                epoll_event event = {};
                event.events = EPOLLIN;
                event.data.fd = number;
                epoll_ctl(epoll, EPOLL_CTL_ADD, number, &event);
            }
        }
        close(epoll);
        foreignPipe = readEnd;
        return writeEnd;
    }
};

#endif // SORREL_TESTS_CLOSED_DESCRIPTORS_FIXTURE_HPP
