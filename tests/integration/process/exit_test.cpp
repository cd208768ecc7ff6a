// The end of a process whose logger has targets: nothing crashes, nothing hangs, whoever still calls.
#include "exit_fixture.hpp"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

using testing::AllOf;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

thread_local LastWords lastWordsOfThread;

using Exit = ExitFixture;

} // namespace

TEST_F(Exit, StaticDestructorsMayCallEverythingAfterTheLogger) {
    EXPECT_EXIT(
        {
            start();
            lastWords.speak = useEverythingAndTell;
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(std::string(kReleased) + "all silent\n"));
}

TEST_F(Exit, HandlersMayCallEverythingAfterTheLogger) {
    EXPECT_EXIT(
        {
            std::atexit(useEverythingAndTell);
            start();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(std::string(kReleased) + "all silent\n"));
}

TEST_F(Exit, EndsThePlainLoggerToo) {
    EXPECT_EXIT(
        {
            start();
            lastWords.speak = [] {
                CSorrel& plain = *CSorrel::getInstance_NoSorrel();
                expectAtExit(plain.createComponent("late", SR_INFO, "") == &CSorrel::ms_OOMFallbackComp, "creation");
                expectAtExit(plain.getComponentByName("late") == nullptr, "component by name");
                std::fputs("gone\n", stderr);
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("gone\n"));
}

TEST_F(Exit, NoThreadAndNoDescriptorOfTheLoggerIsLeft) {
    EXPECT_EXIT(
        {
            static const auto& before = *new auto(openDescriptors()); // outlives all statics
            start();
            sorrel_set_applicationname("player");
            lastWords.speak = [] {
                expectAtExit(!isWorkerWaiting(), "the worker has ended");
                expectAtExit(openDescriptors() == before, "its descriptors are closed");
                std::fputs("alone\n", stderr);
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("alone\n"));
}

TEST_F(Exit, AChildThatNoForkHandlerHasSeenEnds) {
    if (kThreadSanitized) {
        GTEST_SKIP() << "for the sanitizer it is a thread of its parent";
    }
    EXPECT_EXIT(
        {
            start();
            const pid_t child = cloneUnseen();
            if (child == 0) {
                alarm(kChildPatienceSeconds);
                std::exit(EXIT_SUCCESS);
            }
            int status = -1;
            expectAtExit(waitpid(child, &status, 0) == child && status == 0, "the child ends");
            turnDial(3);
            expectAtExit(readsDial(3), "the parent is still watching");
            _exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), StartsWith(kReleased)); // as the child has it done
}

TEST_F(Exit, HandlersThatWereRegisteredAfterTheLoggerStillLog) {
    EXPECT_EXIT(
        {
            start();
            std::atexit([] { say("good bye"); });
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(std::string("recording log good bye\n") + kReleased));
}

TEST_F(Exit, ThreadLocalsOfTheExitingThreadStillLog) {
    EXPECT_EXIT(
        {
            lastWordsOfThread.speak = [] { say("good bye"); }; // made before the record, and destroyed after it
            start();
            say("first");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(std::string("recording log first\nrecording log good bye\n") + kReleased));
}

TEST_F(Exit, ThreadLocalsOfAThreadLogWithoutItsRecord) {
    netComponent = buildLogger();
    std::thread([] {
        lastWordsOfThread.speak = [] { say("good bye"); };
        sorrel_init_nosorrel("named");
        sorrel_enter_function(netComponent, "function");
        say("first");
    }).join();
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1].threadName, "named");
    EXPECT_EQ(messages[1].depth, 1);
    EXPECT_EQ(messages[2].text, "good bye");
    EXPECT_EQ(messages[2].threadName, "<no name>");
    EXPECT_EQ(messages[2].depth, 0);
    EXPECT_EQ(messages[2].functionName, "");
}

TEST_F(Exit, WithTheComponentsLockHeldEndsTheProcess) {
    EXPECT_EXIT(
        {
            start();
            CSorrel::getInstance()->lockComponents();
            CSorrel::getInstance()->lockComponents();
            lastWords.speak = useEverythingAndTell;
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(std::string(kReleased) + "all silent\n"));
}

TEST_F(Exit, TargetsThatLogWhileTheyAreDestroyedAreNotHeard) {
    configure(target("recording") + target("static_object"));
    EXPECT_EXIT(
        {
            start();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), AllOf(HasSubstr("static_object destroy\n"), Not(HasSubstr("farewell"))));
}

TEST_F(Exit, FromATargetThatIsToldTheNameStillEndsTheWorker) {
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("appname", [](const PluginEvent&) {
                lastWords.speak = [] {
                    expectAtExit(waitUntil([] { return !isWorkerWaiting(); }), "the worker has ended");
                };
                std::exit(kChildPassed);
            });
            sorrel_set_applicationname("player");
        },
        ExitedWithCode(kChildPassed), Not(HasSubstr("recording destroy\n")));
}

TEST_F(Exit, TargetThatWasLoadedLaterIsReleasedBeforeItsStaticObjects) {
    EXPECT_EXIT(
        {
            start();
            configure(target("static_object"));
            const bool loaded = journal::waitFor(
                [](const PluginEvent& event) { return event.library == "static_object" && event.kind == "isSyslog"; });
            expectAtExit(loaded, "the second target is loaded");
            expectAtExit(waitUntil(isWorkerWaiting), "the worker has come out of it");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("static_object destroy\nstatic_object done\nstatic_object static\n"));
}
