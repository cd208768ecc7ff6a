// Programs that close all descriptors after their first message, as daemons do: the numbers of the library's own then
// belong to others.
#include "closed_descriptors_fixture.hpp"
#include "syslog_recorder.hpp"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <syslog.h>

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::SizeIs;

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
