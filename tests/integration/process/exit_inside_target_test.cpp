// The end of a process while targets are at work.
#include "exit_fixture.hpp"
#include "syslog_recorder.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <unistd.h>

using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;

namespace {

class ExitInsideTarget : public ExitFixture {
protected:
    // Has the hook called inside the target at the next message.
    static void exitInsideTarget() {
        journal::onEvent("log", [](const PluginEvent&) { std::exit(EXIT_SUCCESS); });
    }

    // A thread that stays inside a target's log for ever.
    static void leaveThreadInsideTarget() {
        static std::promise<void>& isInside = *new std::promise<void>;
        journal::onEvent("log", [](const PluginEvent&) {
            isInside.set_value();
            for (;;) {
                pause();
            }
        });
        std::thread([] { say("stuck"); }).detach();
        isInside.get_future().wait();
    }

    // Exits inside this operation of the target while the worker waits for the container's mutex.
    void expectWorkerEnds(const std::string& kind, void (*bringAbout)()) {
        setenv("SORREL_VERBOSE_STARTUP", "1", 1);
        SyslogRecorder recorder;
        const pid_t child = startChild([&] {
            start();
            journal::onEvent(kind, [this](const PluginEvent&) {
                blockWorker();
                std::exit(kChildPassed);
            });
            bringAbout();
            return false;
        });
        EXPECT_EQ(endOfChild(child), kChildPassed);
        EXPECT_EQ(recorder.count("logtarget-container: got exit message - ending thread."), 1);
    }

    static void holdComponentsForEver() {
        std::promise<void> locked;
        std::thread([&locked] {
            CSorrel::getInstance()->lockComponents();
            locked.set_value();
            for (;;) {
                pause();
            }
        }).detach();
        locked.get_future().wait();
    }
};

} // namespace

TEST_F(ExitInsideTarget, LeavesThatTargetAlone) {
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            exitInsideTarget();
            say("the last one");
        },
        ExitedWithCode(0),
        Eq("recording log the last one\nrecording_b factory\nrecording_b destroy\nrecording_b done\n"));
}

TEST_F(ExitInsideTarget, OnAnotherThreadLeavesThatTargetAlone) {
    EXPECT_EXIT(
        {
            start();
            exitInsideTarget();
            std::thread([] { say("the last one"); }).join();
        },
        ExitedWithCode(0), Eq("recording log the last one\n"));
}

TEST_F(ExitInsideTarget, DuringACreationEndsTheProcess) {
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("component", [](const PluginEvent&) { std::exit(EXIT_SUCCESS); });
            sorrel_create_component("new", SR_INFO, "");
        },
        ExitedWithCode(0), Eq("recording component\n"));
}

TEST_F(ExitInsideTarget, OfTheWorkerEndsTheProcess) {
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("isSyslog", [](const PluginEvent&) { std::exit(EXIT_SUCCESS); });
            turnDial(2);
            for (;;) {
                pause();
            }
        },
        ExitedWithCode(0), Eq("recording component\nrecording isSyslog\n"));
}

TEST_F(ExitInsideTarget, MayUseEverythingAfterwards) {
    EXPECT_EXIT(
        {
            start();
            lastWords.speak = useEverythingAndTell;
            exitInsideTarget();
            say("the last one");
        },
        ExitedWithCode(0), Eq("recording log the last one\nall silent\n"));
}

TEST_F(ExitInsideTarget, StillEndsTheWorkerThatWaitsForTheMutex) {
    expectWorkerEnds("log", [] { say("the last one"); });
}

TEST_F(ExitInsideTarget, StillEndsTheWorkerThatWaitsForTheMutexDuringACreation) {
    expectWorkerEnds("component", [] { sorrel_create_component("new", SR_INFO, ""); });
}

TEST_F(ExitInsideTarget, WhileAThreadHoldsTheComponentsLockEndsTheProcess) {
    EXPECT_EXIT(
        {
            start();
            holdComponentsForEver();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(kReleased));
}

TEST_F(ExitInsideTarget, WhileTheWorkerIsStuckBetweenTargetsLeavesAllTargetsAlone) {
    EXPECT_EXIT(
        {
            start();
            holdComponentsForEver();
            blockWorker();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(""));
}

TEST_F(ExitInsideTarget, WhileAThreadIsStuckInATargetLeavesThatTargetAlone) {
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            leaveThreadInsideTarget();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq("recording log stuck\nrecording_b factory\nrecording_b destroy\nrecording_b done\n"));
}

TEST_F(ExitInsideTarget, WhileAThreadIsStuckInATargetAndNobodyWatchesLeavesThatTargetAlone) {
    removeConfiguration();
    configureApp("player", target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            sorrel_set_applicationname("player");
            expectAtExit(!isWorkerWaiting(), "there is no worker");
            leaveThreadInsideTarget();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0),
        EndsWith("recording log stuck\nrecording_b factory\nrecording_b destroy\nrecording_b done\n"));
}

// The child has no worker to leave alone.
TEST_F(ExitInsideTarget, OnAnotherThreadOfAForkedChildEndsIt) {
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("log", [](const PluginEvent& event) {
                if (event.library != "recording") {
                    return;
                }
                const pid_t child = startChild([] {
                    std::thread([] { std::exit(kChildPassed); }).detach();
                    for (;;) {
                        pause();
                    }
                    return false;
                });
                _exit(endOfChild(child));
            });
            say("forks");
        },
        ExitedWithCode(kChildPassed),
        Eq("recording log forks\nrecording_b factory\nrecording_b destroy\nrecording_b done\n"));
}

TEST_F(ExitInsideTarget, WhileAThreadIsStuckInATargetEndsAChildThatNoForkHandlerHasSeen) {
    if (kThreadSanitized) {
        GTEST_SKIP() << "for the sanitizer it is a thread of its parent";
    }
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            leaveThreadInsideTarget();
            const pid_t child = cloneUnseen();
            if (child == 0) {
                alarm(kChildPatienceSeconds);
                std::exit(kChildPassed);
            }
            _exit(endOfChild(child));
        },
        ExitedWithCode(kChildPassed),
        Eq("recording log stuck\nrecording_b factory\nrecording_b destroy\nrecording_b done\n"));
}

TEST_F(ExitInsideTarget, WhileThreadsLogEndsTheProcess) {
    for (int i = 0; i < 50; ++i) {
        const pid_t child = startChild([] {
            netComponent = buildLogger();
            std::atomic<int> logged{0};
            for (int k = 0; k < 4; ++k) {
                std::thread([&logged] {
                    for (;;) {
                        say("storm");
                        ++logged;
                        sorrel_create_component("of the storm", SR_INFO, "64=INFO");
                        componentNames();
                    }
                }).detach();
            }
            waitUntil([&] { return logged > 20; });
            lastWords.speak = useEverything;
            std::exit(kChildPassed);
            return false;
        });
        ASSERT_EQ(endOfChild(child), kChildPassed) << "exit " << i;
    }
}
