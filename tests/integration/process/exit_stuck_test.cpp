// The end of a process whose threads do not come out of a target, or come out too late.
#include "blocked_thread.hpp"
#include "exit_fixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <ostream>
#include <stdexcept>

using testing::EndsWith;
using testing::ExitedWithCode;
using testing::KilledBySignal;

namespace {

constexpr char kOtherIsReleased[] = "recording_b factory\nrecording_b destroy\nrecording_b done\n";

// An operation in which the worker is stuck while it re-reads, whether that loads or unloads the target, and what the
// target still sees when the worker comes back.
struct StuckIn {
    const char* name;
    const char* kind;
    bool isLoadedBefore;
    bool isLoadedAfterwards;
    const char* whatFollows;
};

void PrintTo(const StuckIn& operation, std::ostream* out) {
    *out << operation.name;
}

// Never destroyed: threads look at it until the process is gone.
struct Gate {
    std::promise<void> isInside;
    std::promise<void> mayGo;
};

class ExitWithTheWorkerStuck : public ExitFixture, public testing::WithParamInterface<StuckIn> {
protected:
    ExitWithTheWorkerStuck() { configureTargets(GetParam().isLoadedBefore); }

    // With the worker inside the target "recording", from where it comes back once the other target is released.
    void exitWithTheWorkerInside(bool comesBack) const {
        start();
        Gate& gate = *new Gate;
        journal::onEvent(GetParam().kind, [&gate](const PluginEvent& event) {
            if (event.library == "recording") {
                gate.isInside.set_value();
                gate.mayGo.get_future().wait();
            }
        });
        journal::onEvent("done", [&gate, comesBack](const PluginEvent& event) {
            if (event.library == "recording_b" && comesBack) {
                gate.mayGo.set_value();
                waitUntil([] { return isWorkerWaiting(); });
            }
        });
        configureTargets(GetParam().isLoadedAfterwards);
        gate.isInside.get_future().wait();
        std::exit(EXIT_SUCCESS);
    }

private:
    void configureTargets(bool both) const {
        configure((both ? target("recording") : "") + target("recording_b") + "component=dial,1\n");
    }
};

std::string nameOf(const testing::TestParamInfo<StuckIn>& info) {
    return info.param.name;
}

} // namespace

TEST_P(ExitWithTheWorkerStuck, ReleasesTheOtherTargets) {
    EXPECT_EXIT(exitWithTheWorkerInside(false), ExitedWithCode(0), EndsWith(kOtherIsReleased));
}

TEST_P(ExitWithTheWorkerStuck, AWorkerThatComesBackTouchesNothingAnyMore) {
    EXPECT_EXIT(exitWithTheWorkerInside(true), ExitedWithCode(0),
                EndsWith(std::string(kOtherIsReleased) + GetParam().whatFollows));
}

constexpr StuckIn kOperations[] = {
    {"init", "init", false, true, "recording factory\nrecording create LogTarget\nrecording getName\n"},
    {"create", "create", false, true, "recording getName\n"},
    {"getNameWhenLoaded", "getName", false, true, ""},
    {"isSyslog", "isSyslog", true, true, ""},
    {"component", "component", true, true, ""},
    {"getNameWhenUnloaded", "getName", true, false, ""},
    {"destroy", "destroy", true, false, "recording done\n"},
};

INSTANTIATE_TEST_SUITE_P(In, ExitWithTheWorkerStuck, testing::ValuesIn(kOperations), nameOf);

using ExitWithAStuckThread = ExitFixture;

// Between two operations of targets a thread may look at any of them.
TEST_F(ExitWithAStuckThread, OutsideOfTargetsReleasesNone) {
    EXPECT_EXIT(
        {
            start();
            std::promise<void> isInside;
            journal::onEvent("log", [&isInside](const PluginEvent&) {
                journal::onEvent("log", nullptr);
                journal::onEvent("component", [&isInside](const PluginEvent&) {
                    isInside.set_value();
                    for (;;) {
                        pause();
                    }
                });
                sorrel_create_component("inner", SR_INFO, "");
            });
            std::thread([] { say("outer"); }).detach();
            isInside.get_future().wait();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("recording log outer\nrecording component\n"));
}

// It comes back while the other target is being destroyed.
TEST_F(ExitWithAStuckThread, ThatNamesTheApplicationTouchesNothingAnyMore) {
    configure(target("recording_b"));
    configureApp("player", target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            Gate& gate = *new Gate;
            std::promise<void>& hasNamed = *new std::promise<void>;
            journal::onEvent("create", [&](const PluginEvent&) {
                gate.isInside.set_value();
                gate.mayGo.get_future().wait();
            });
            journal::onEvent("destroy", [&](const PluginEvent&) {
                gate.mayGo.set_value();
                hasNamed.get_future().wait();
            });
            std::thread([&] {
                sorrel_set_applicationname("player");
                hasNamed.set_value();
            }).detach();
            gate.isInside.get_future().wait();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("recording_b factory\nrecording_b destroy\nrecording getName\nrecording_b done\n"));
}

// One holds the lock while the process exits, the other waits for it; a static object waits for both.
TEST_F(ExitWithAStuckThread, ThatGivesTheComponentsLockBackAfterwardsLetsTheNextOneGo) {
    EXPECT_EXIT(
        {
            start();
            static Gate& gate = *new Gate;
            static std::thread& holder = *new std::thread([] {
                CSorrel::getInstance()->lockComponents();
                gate.isInside.set_value();
                gate.mayGo.get_future().wait();
                CSorrel::getInstance()->unlockComponents();
            });
            gate.isInside.get_future().wait();
            static ObservedThread& waiter = *new ObservedThread([] { componentNames(); });
            EXPECT_TRUE(waiter.waitUntilBlocked());
            lastWords.speak = [] {
                gate.mayGo.set_value();
                holder.join();
                waiter.join();
                std::fputs("both have ended\n", stderr);
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), EndsWith("both have ended\n"));
}

using ExitWithAThrowingTarget = ExitFixture;

// Also on the worker, where exceptions are swallowed otherwise.
TEST_F(ExitWithAThrowingTarget, EndsTheProcess) {
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("destroy", [](const PluginEvent&) { throw std::runtime_error("while it is destroyed"); });
            journal::onEvent("isSyslog", [](const PluginEvent&) { std::exit(EXIT_SUCCESS); });
            turnDial(2);
            configure(target("recording") + target("recording_b"));
            for (;;) {
                pause();
            }
        },
        KilledBySignal(SIGABRT), "");
}
