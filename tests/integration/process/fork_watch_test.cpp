// The watch of the configuration in a forked child: its own, from its first message on.
#include "fork_fixture.hpp"
#include "refused_inotify.hpp"
#include "syslog_recorder.hpp"

#include <atomic>
#include <locale>
#include <thread>

namespace {

class ForkWatch : public ForkFixture {};

} // namespace

TEST_F(ForkWatch, ChildThatOnlyExecutesAProgramPaysNothing) {
    build();
    EXPECT_TRUE(isWatching());
    EXPECT_TRUE(passesInChild([] { return hasNoWatch() && threadIds().size() == 1; }));
}

TEST_F(ForkWatch, ChildArmsItsOwnWatchAtItsFirstMessage) {
    build();
    EXPECT_TRUE(passesInChild([this] {
        say("from the child");
        const bool armed = isWatching() && threadIds().size() == 2;
        turnDial(2);
        return armed && readsDial(2);
    }));
    expectParentStillWatches();
}

TEST_F(ForkWatch, ChildArmsItsOwnWatchAtItsFirstNewComponent) {
    build();
    EXPECT_TRUE(passesInChild([] {
        sorrel_create_component("of the child", SR_INFO, "");
        return isWatching();
    }));
}

TEST_F(ForkWatch, MessageThatDoesNotPassDoesNotArmTheWatch) {
    build();
    EXPECT_TRUE(passesInChild([] {
        _sorrel(sorrel::sorrel_get_component_by_name("dial"), SR_INFO, "does not pass");
        return hasNoWatch();
    }));
}

TEST_F(ForkWatch, ChildReadsOnceWhatChangedBeforeItsWatch) {
    build();
    EXPECT_TRUE(passesInChild([this] {
        journal::clear();
        turnDial(2); // nobody watches
        say("from the child");
        const bool gotFirst = readsDial(2);
        turnDial(3);
        const bool gotSecond = readsDial(3);
        // The last step of a re-read, for a target that stays.
        const bool bothDone = waitUntil([] { return journal::ofKind("isSyslog").size() >= 2; });
        return gotFirst && gotSecond && bothDone && journal::ofKind("isSyslog").size() == 2;
    }));
}

TEST_F(ForkWatch, ChildWatchesTheFileOfTheApplication) {
    turnDialOf("app", 1);
    build();
    sorrel_set_applicationname("app");
    EXPECT_TRUE(passesInChild([this] {
        turnDialOf("app", 2);
        say("from the child");
        const bool gotFirst = readsDial(2);
        turnDialOf("app", 3);
        return gotFirst && readsDial(3);
    }));
}

TEST_F(ForkWatch, ChildWithoutANameWatchesTheFileOfAll) {
    turnDialOf("", 4); // nobody's
    build();
    EXPECT_TRUE(passesInChild([this] {
        turnDial(2);
        say("from the child");
        const bool gotFirst = readsDial(2);
        turnDial(3);
        return gotFirst && readsDial(3);
    }));
}

// The C++ library takes a lock for each copy of a global locale that is not the classic one.
TEST_F(ForkWatch, ChildReadsWhateverOtherThreadsDoWithTheLocale) {
    constexpr int kForks = 100;
    build();
    sorrel_component* const dial = sorrel::sorrel_get_component_by_name("dial");
    const std::locale usual = std::locale::global(std::locale(std::locale::classic(), new std::ctype<char>));
    std::atomic<bool> isOver{false};
    std::atomic<int> begun{0};
    const auto copyLocales = [&] {
        ++begun;
        while (!isOver) {
            const std::locale copy;
        }
    };
    std::thread first(copyLocales);
    std::thread second(copyLocales);
    waitUntil([&] { return begun == 2; }); // a thread that is being started allocates
    int passed = 0;
    while (passed < kForks && endOfChild(startChildAtOnce([&] {
                                  __atomic_store_n(&dial->mask, 0, __ATOMIC_RELAXED);
                                  say("from the child");
                                  return readsDial(1);
                              })) == kChildPassed) {
        ++passed;
    }
    EXPECT_EQ(passed, kForks);
    isOver = true;
    first.join();
    second.join();
    std::locale::global(usual);
}

TEST_F(ForkWatch, ChildOfAChildThatDidNotLogArmsItsOwnWatch) {
    build();
    EXPECT_TRUE(passesInChild([this] {
        return passesInChild([this] { // as daemon(3) and its like do
            say("from the grandchild");
            turnDial(2);
            return isWatching() && readsDial(2);
        });
    }));
}

TEST_F(ForkWatch, ChildOfAChildThatLoggedArmsItsOwnWatch) {
    build();
    EXPECT_TRUE(passesInChild([this] {
        say("from the child");
        const bool grandchildPassed = passesInChild([this] {
            say("from the grandchild");
            turnDial(2);
            return isWatching() && readsDial(2);
        });
        turnDial(3);
        return grandchildPassed && readsDial(3);
    }));
}

TEST_F(ForkWatch, ChildOfAProcessWithoutWatchHasNoneEither) {
    removeConfiguration();
    net = buildLogger();
    EXPECT_TRUE(passesInChild([this] {
        say("from the child");
        return hasNoWatch();
    }));
}

TEST_F(ForkWatch, ChildWithoutInotifyLogsUnwatchedAndDoesNotTryAgain) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    SyslogRecorder recorder;
    build();
    EXPECT_TRUE(passesInChild([this] {
        refuseInotify = true;
        say("first");
        refuseInotify = false;
        say("second");
        return hasText("first") && hasText("second") && hasNoWatch() && threadIds().size() == 1;
    }));
    EXPECT_EQ(
        recorder.count("logtarget-container: unable to initialize event-handling - not worker thread will be spawned"),
        1);
}

TEST_F(ForkWatch, LoggerThatIsBuiltInTheChildOnlyIsAsAnyOther) {
    EXPECT_TRUE(passesInChild([this] {
        build();
        say("from the child");
        turnDial(2);
        return hasText("from the child") && isWatching() && readsDial(2);
    }));
}
