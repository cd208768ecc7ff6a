// The end of a process inside as many operations as the container keeps account of, and inside more.
#include "exit_fixture.hpp"

#include <atomic>
#include <gmock/gmock.h>

using testing::AllOf;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::size_t kDeepestKnown = 16;
constexpr std::size_t kDeep = 20;

class ExitDeepInside : public ExitFixture {
protected:
    ExitDeepInside() { configure(target("recording") + target("recording_b")); }

    // Logs from inside the first target until so many operations are on the stack. The last one does something in the
    // target of that name.
    static void goDeep(std::size_t depth, const std::string& library, void (*atTheBottom)()) {
        journal::onEvent("log", [=](const PluginEvent& event) {
            if (journal::ofKind("log").size() < depth) {
                say("again");
            } else if (event.library == library) {
                atTheBottom();
            }
        });
        say("the first");
    }

    static void exitHere() { std::exit(EXIT_SUCCESS); }

    static void stayHere() {
        isAtTheBottom = true;
        for (;;) {
            pause();
        }
    }

    static inline std::atomic<bool> isAtTheBottom{false};
};

} // namespace

TEST_F(ExitDeepInside, ReleasesTheOtherTargetsWhileAllOperationsAreKnown) {
    EXPECT_EXIT(
        {
            start();
            goDeep(kDeepestKnown, "recording", exitHere);
        },
        ExitedWithCode(0), AllOf(HasSubstr("recording_b destroy"), Not(HasSubstr("recording destroy"))));
}

TEST_F(ExitDeepInside, LeavesTheTargetOfTheLastKnownOperationAlone) {
    EXPECT_EXIT(
        {
            start();
            goDeep(kDeepestKnown, "recording_b", exitHere);
        },
        ExitedWithCode(0), Not(HasSubstr("destroy")));
}

TEST_F(ExitDeepInside, OnAnotherThreadReleasesTheOtherTargetsWhileAllOperationsAreKnown) {
    EXPECT_EXIT(
        {
            start();
            std::thread([] { goDeep(kDeepestKnown, "recording", stayHere); }).detach();
            expectAtExit(waitUntil([] { return isAtTheBottom.load(); }), "the other thread is at the bottom");
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), AllOf(HasSubstr("recording_b destroy"), Not(HasSubstr("recording destroy"))));
}

TEST_F(ExitDeepInside, LeavesAllTargetsAlone) {
    EXPECT_EXIT(
        {
            start();
            goDeep(kDeep, "recording", exitHere);
        },
        ExitedWithCode(0), Not(HasSubstr("destroy")));
}
