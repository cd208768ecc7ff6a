// Programs that close all descriptors after their first message, as daemons do: the numbers of the library's own then
// belong to others.
#include "child_process.hpp"
#include "dial_fixture.hpp"
#include "syslog_recorder.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <memory>
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

// Whether all are still open, and nobody has written to the pipe or to a file.
bool areForeignersUntouched() {
    const std::map<int, std::string> open = openDescriptors();
    for (const Foreign& foreign : foreigners) {
        const auto found = open.find(foreign.fd);
        struct stat status = {};
        if (found == open.end() || found->second != foreign.what || fstat(foreign.fd, &status) != 0 ||
            status.st_size != 0) {
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
