// Programs that close all descriptors after their first message, as daemons do: the numbers of the library's own then
// belong to others.
#include "child_process.hpp"
#include "dial_fixture.hpp"
#include "syslog_recorder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <syslog.h>

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::SizeIs;

namespace {

struct Foreign {
    int fd;
    std::string what; // as in /proc/self/fd
};

std::vector<Foreign> foreigners;
int foreignPipe = -1; // the end from which it is read

constexpr char kInotify[] = "anon_inode:inotify";

// Whether all are still open, nobody has written to the pipe or to a file, and each inotify has its watch.
bool areForeignersUntouched() {
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

LastLook lastLook;

class ClosedDescriptors : public DialFixture {
protected:
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
    // To close a descriptor under another thread is a race by itself, whatever the library does.
    void SetUp() override {
        GTEST_SKIP() << "races by its nature";
    }
#endif
#endif

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

    static void say(const char* text) {
        _sorrel(buildLogger(), SR_INFO, "%s", text);
    }

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

    static int openEpoll() {
        return outOfTheWay(epoll_create1(EPOLL_CLOEXEC));
    }

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

    static bool isWorkerWaiting() {
        const std::set<int> ids = threadIds();
        return std::any_of(ids.begin(), ids.end(), waitsForEvents);
    }
    static bool isAlone() {
        return threadIds().size() == 1;
    }

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

} // namespace

TEST_F(ClosedDescriptors, LibraryHasFour) {
    EXPECT_THAT(startLogging(), SizeIs(4));
}

TEST_F(ClosedDescriptors, ProcessEndsNormally) {
    EXPECT_EXIT(
        {
            startLogging();
            closeAll();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), "");
}

TEST_F(ClosedDescriptors, MessagesStillReachTheTargets) {
    startLogging();
    closeAll();
    say("second");
    EXPECT_THAT(textsOf("recording"), ElementsAre("first", "second"));
}

TEST_F(ClosedDescriptors, ForeignFilesOnTheirNumbersAreLeftAlone) {
    EXPECT_EXIT(
        {
            const std::vector<int> ours = startLogging();
            closeAll();
            reuse(ours, openFile);
            sorrel_set_applicationname("app");
            say("second");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), "^untouched\n$");
}

TEST_F(ClosedDescriptors, ForeignPipesOnTheirNumbersAreLeftAlone) {
    EXPECT_EXIT(
        {
            const std::vector<int> ours = startLogging();
            closeAll();
            int ends[2];
            if (pipe2(ends, O_NONBLOCK) != 0) {
                _exit(EXIT_FAILURE);
            }
            foreignPipe = outOfTheWay(ends[0]);
            const int writeEnd = outOfTheWay(ends[1]);
            reuse(ours, [writeEnd] { return fcntl(writeEnd, F_DUPFD, 500); });
            sorrel_set_applicationname("app");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), "^untouched\n$");
}

TEST_F(ClosedDescriptors, ForeignDescriptorsWithoutInodeOnTheirNumbersAreLeftAlone) {
    EXPECT_EXIT(
        {
            const std::vector<int> ours = startLogging();
            closeAll();
            reuse(ours, [] { return outOfTheWay(timerfd_create(CLOCK_MONOTONIC, 0)); });
            sorrel_set_applicationname("app");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), "^untouched\n$");
}

TEST_F(ClosedDescriptors, ForeignEpollsOnTheirNumbersAreLeftAlone) {
    EXPECT_EXIT(exitWithForeigners(openEpoll), ExitedWithCode(0), "^untouched\n$");
}

TEST_F(ClosedDescriptors, ForeignInotifiesOnTheirNumbersKeepTheirWatches) {
    EXPECT_EXIT(exitWithForeigners(openInotify), ExitedWithCode(0), "^untouched\n$");
}

TEST_F(ClosedDescriptors, ProcessEndsNormallyWhicheverOfThemIsClosed) {
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EXIT(
            {
                const std::vector<int> ours = startLogging();
                waitUntil(isWorkerWaiting);
                close(ours.at(i));
                std::exit(EXIT_SUCCESS);
            },
            ExitedWithCode(0), "")
            << i;
    }
}

TEST_F(ClosedDescriptors, NamingTheApplicationReportsThatNobodyReadsTheNotification) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    SyslogRecorder recorder;
    openlog(nullptr, LOG_NDELAY, LOG_USER);
    const int readEnd = endOfPipe(startLogging(), O_RDONLY);
    ASSERT_NE(readEnd, -1);
    close(readEnd);
    recorder.clear();
    sorrel_set_applicationname("app");
    EXPECT_EQ(recorder.count("logtarget-container: unable to write to pipe (notify) - errno=Bad file descriptor"), 1);
    EXPECT_EQ(recorder.count("logtarget-container: unable to notify thread about a changed appname"), 1);
}

// The program's own event loop has got their numbers when it is stopped, by a debugger, say.
TEST_F(ClosedDescriptors, WorkerThatIsInterruptedEndsAndTheProcessNormally) {
    const int end = endOfStoppedChild([] {
        const std::vector<int> ours = startLogging();
        bool passed = waitUntil(isWorkerWaiting);
        closeAll();
        const int writeEnd = openOwnEventLoop(ours);
        raise(SIGSTOP);
        passed = passed && waitUntil(isAlone);
        const int message = 0;
        int received = -1;
        passed = passed && write(writeEnd, &message, sizeof message) == sizeof message &&
                 read(foreignPipe, &received, sizeof received) == sizeof received;
        std::exit(passed ? kChildPassed : 1);
        return false;
    });
    EXPECT_EQ(end, kChildPassed);
}

// A program's own container may be destroyed although its worker could not be told to end. Its memory then serves
// others: here every word of it is the number of an epoll in which nothing happens.
TEST_F(ClosedDescriptors, WorkerOfADestroyedContainerEndsWhenItIsInterrupted) {
    const int end = endOfStoppedChild([] {
        alignas(sorrel::CLogTargetContainer) static std::array<int, sizeof(sorrel::CLogTargetContainer) / sizeof(int)>
            memory;
        auto* const container = new (memory.data()) sorrel::CLogTargetContainer("", true, nullptr);
        const bool wasWaiting = waitUntil(isWorkerWaiting);
        closeAll();
        container->~CLogTargetContainer();
        memory.fill(openEpoll());
        raise(SIGSTOP);
        return wasWaiting && waitUntil(isAlone);
    });
    EXPECT_EQ(end, kChildPassed);
}

TEST_F(ClosedDescriptors, NamingTheApplicationReportsThatTheWorkerIsNotTold) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    SyslogRecorder recorder;
    startLogging();
    closeAll();
    recorder.clear();
    sorrel_set_applicationname("app");
    EXPECT_EQ(recorder.count("logtarget-container: unable to write to pipe (notify) - errno=Bad file descriptor"), 1);
    EXPECT_EQ(recorder.count("logtarget-container: unable to notify thread about a changed appname"), 1);
}

TEST_F(ClosedDescriptors, NamingTheApplicationReportsAForeignFileAsABadDescriptor) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    SyslogRecorder recorder;
    openlog(nullptr, LOG_NDELAY, LOG_USER); // so that its socket is not taken for the library's
    const std::vector<int> ours = startLogging();
    closeAll();
    reuse(ours, openFile);
    recorder.clear();
    sorrel_set_applicationname("app");
    EXPECT_EQ(recorder.count("logtarget-container: unable to write to pipe (notify) - errno=Bad file descriptor"), 1);
    EXPECT_TRUE(areForeignersUntouched());
    foreigners.clear();
}

TEST_F(ClosedDescriptors, ChildThatClosesEverythingArmsItsOwnWatch) {
    startLogging();
    EXPECT_TRUE(passesInChild([this] {
        closeAll();
        say("from the child");
        turnDial(2);
        return isWatching() && readsDial(2);
    }));
    turnDial(3);
    EXPECT_TRUE(readsDial(3));
}

TEST_F(ClosedDescriptors, ForkAfterwardsLeavesForeignFilesAlone) {
    const std::vector<int> ours = startLogging();
    closeAll();
    reuse(ours, openFile);
    EXPECT_TRUE(passesInChild([] { return areForeignersUntouched(); }));
    foreigners.clear();
}

TEST_F(ClosedDescriptors, ForkAfterwardsLeavesForeignEpollsAlone) {
    expectUntouchedByFork(openEpoll);
}

TEST_F(ClosedDescriptors, ForkAfterwardsLeavesForeignInotifiesAlone) {
    expectUntouchedByFork(openInotify);
}
