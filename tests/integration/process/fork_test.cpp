// fork(2) in a process that logs: what the child may do, and that the parent does not notice.
#include "blocked_thread.hpp"
#include "container_fixture.hpp"
#include "fork_fixture.hpp"
#include "watchdog.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <fcntl.h>
#include <future>
#include <memory>

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class Fork : public ForkFixture {
protected:
    void build() {
        m_before = openDescriptors();
        ForkFixture::build();
    }

    // Reads a pipe to its end.
    static std::vector<std::string> linesFrom(int fd) {
        std::string text;
        char buffer[4096];
        for (ssize_t got = read(fd, buffer, sizeof buffer); got > 0; got = read(fd, buffer, sizeof buffer)) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    // What the descriptors of a program stand for that a child executes.
    template <class BeforeExec>
    std::vector<std::string> descriptorsAfterExec(BeforeExec beforeExec) const {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const pid_t child = startChild([&] {
            beforeExec();
            dup2(ends[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", "readlink /proc/$$/fd/*; exit 42", nullptr);
            return false;
        });
        close(ends[1]);
        const std::vector<std::string> lines = linesFrom(ends[0]);
        close(ends[0]);
        EXPECT_EQ(endOfChild(child), kChildPassed);
        return lines;
    }

    // Standard output is the pipe; everything else was open before there was a logger.
    void expectNothingOfTheLibrary(const std::vector<std::string>& descriptors) const {
        std::size_t unknown = 0;
        for (const std::string& descriptor : descriptors) {
            const bool known = std::any_of(m_before.begin(), m_before.end(),
                                           [&](const auto& before) { return before.second == descriptor; });
            unknown += known ? 0U : 1U;
        }
        EXPECT_EQ(unknown, 1U) << testing::PrintToString(descriptors);
        EXPECT_THAT(descriptors, Each(Not(HasSubstr("anon_inode"))));
    }

    std::map<int, std::string> m_before;
};

} // namespace

TEST_F(Fork, ChildLogsUnderItsOwnProcessId) {
    build();
    EXPECT_TRUE(passesInChild([this] {
        journal::clear();
        say("from the child");
        const std::vector<PluginEvent> messages = messagesOf("recording");
        return messages.size() == 1 && messages[0].text == "from the child" && messages[0].processId == getpid();
    }));
}

TEST_F(Fork, ChildThatOnlyEndsLeavesTheParentsWatchAlive) {
    build();
    EXPECT_TRUE(passesInChild([] { return true; }));
    expectParentStillWatches();
}

TEST_F(Fork, ChildHasNoDescriptorOfTheLibrary) {
    build();
    EXPECT_TRUE(passesInChild([this] { return openDescriptors() == m_before; }));
}

TEST_F(Fork, ChildThatOnlyExecutesAProgramLeavesTheParentsWatchAlive) {
    build();
    const pid_t child = startChild([] {
        execl("/bin/true", "true", nullptr);
        return false;
    });
    EXPECT_EQ(endOfChild(child), 0);
    expectParentStillWatches();
}

TEST_F(Fork, ExecutedProgramsInheritNoDescriptorOfTheLibrary) {
    build();
    expectNothingOfTheLibrary(descriptorsAfterExec([] {}));
}

TEST_F(Fork, ProgramsThatALoggingChildExecutesInheritNoDescriptorOfTheLibrary) {
    build();
    expectNothingOfTheLibrary(descriptorsAfterExec([this] { say("from the child"); }));
}

TEST_F(Fork, ChildThatExitsDoesNotEndTheParentsWorker) {
    build();
    const pid_t child = startChild([] {
        std::exit(kChildPassed);
        return false;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    expectParentStillWatches();
}

TEST_F(Fork, ChildThatLogsAndExitsDoesNotEndTheParentsWorker) {
    build();
    const pid_t child = startChild([this] {
        say("from the child");
        std::exit(kChildPassed);
        return false;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    expectParentStillWatches();
}

TEST_F(Fork, ChildThatExitsReleasesItsTargets) {
    build();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = startChild([&] {
        journal::echoTo(ends[1]);
        std::exit(kChildPassed);
        return false;
    });
    close(ends[1]);
    EXPECT_THAT(linesFrom(ends[0]), ElementsAre("recording factory", "recording destroy", "recording done"));
    EXPECT_EQ(endOfChild(child), kChildPassed);
}

TEST_F(Fork, ChildrenMayBuildTheOtherLoggerOnAnotherThread) {
    build();
    const pid_t child = startChild([] {
        std::thread([] { sorrel_set_applicationname_nosorrel("player"); }).join();
        return true;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
}

TEST_F(Fork, ChildrenOfAStormOfMessagesAllEnd) {
    if (!kChildrenMayAllocate) {
        GTEST_SKIP() << "the sanitizer's allocator is not ready for it";
    }
    build();
    std::atomic<bool> over{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!over) {
                say("storm");
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        const pid_t child = startChild([&, this] {
            if (i % 4 == 0) {
                execl("/bin/sh", "sh", "-c", "exit 42", nullptr);
            }
            say("from the child");
            sorrel_create_component("of the child", SR_INFO, "");
            if (i % 4 == 1) {
                std::exit(kChildPassed);
            }
            return hasText("from the child");
        });
        ASSERT_EQ(endOfChild(child), kChildPassed) << "child " << i;
        journal::clear();
    }
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    expectParentStillWatches();
}

TEST_F(Fork, FromInsideATargetBothProcessesGoOn) {
    build();
    pid_t child = -1;
    {
        const ScopedHook hook("log", [&](const PluginEvent&) {
            if (child == -1) {
                letOtherThreadsSettle();
                child = fork();
            }
        });
        say("forks");
    }
    const auto goesOn = [this] { // messages of other threads, too: nobody holds the lock
        std::thread([this] { say("afterwards"); }).join();
        return hasText("forks") && hasText("afterwards");
    };
    if (child == 0) {
        alarm(kChildPatienceSeconds);
        bool passed = goesOn() && isWatching();
        turnDial(2);
        passed = passed && readsDial(2);
        _exit(passed ? kChildPassed : 1);
    }
    EXPECT_TRUE(goesOn());
    EXPECT_EQ(endOfChild(child), kChildPassed);
    expectParentStillWatches();
}

TEST_F(Fork, HeldComponentsLockIsHeldInTheChildToo) {
    build();
    CSorrel* const logger = CSorrel::getInstance();
    logger->lockComponents();
    logger->lockComponents();
    const auto releases = [&] {
        ObservedThread creator([] { sorrel_create_component("late", SR_INFO, ""); });
        logger->unlockComponents();
        const bool blocked = creator.waitUntilBlocked();
        logger->unlockComponents();
        creator.join();
        return blocked;
    };
    const pid_t child = startChild(releases);
    EXPECT_TRUE(releases());
    EXPECT_EQ(endOfChild(child), kChildPassed);
}

TEST_F(Fork, ThatHadToWaitForALockLeavesAllOfThemFree) {
    build();
    const Watchdog watchdog;
    std::promise<void> isInside;
    std::promise<void> mayLeave;
    const ScopedHook hook("log", [&](const PluginEvent&) {
        isInside.set_value();
        mayLeave.get_future().wait();
    });
    const auto forks = [] { EXPECT_TRUE(passesInChild([] { return true; })); };
    const ObservedThread busy([this] { say("busy"); });
    isInside.get_future().wait();
    {
        const ObservedThread waiting(forks);
        EXPECT_TRUE(waiting.waitUntilBlocked());
        mayLeave.set_value();
    }
    ObservedThread(forks).join(); // takes the same locks
}

TEST_F(Fork, ContainerThatAChildDestroysStaysAliveInTheParent) {
    unsetenv("SORL_PATH");
    TempDir directory;
    directory.write("sorrel.cfg", "");
    RecordingSink sink;
    auto container = std::make_unique<sorrel::CLogTargetContainer>(directory.path(), true, &sink);
    EXPECT_TRUE(passesInChild([&] {
        container.reset();
        return true;
    }));
    directory.write("sorrel.cfg", "component=dial,1\n");
    EXPECT_TRUE(sink.waitFor("dial", "1"));
}
