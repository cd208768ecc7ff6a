// SIGUSR1: a running program reads its level again.
#include "tangle_fixture.hpp"

#include <csignal>
#include <cstring>
#include <gmock/gmock.h>

using sorrel::sorrel_tangleLogInit;
using testing::ElementsAre;
using testing::IsEmpty;

// Asked by ThreadSanitizer: the handler reads a file and writes to syslog in signal context, by design.
extern "C" const char* __tsan_default_suppressions() {
    return "signal:onTangleLevelSignal";
}

namespace {

volatile std::sig_atomic_t ownSignals = 0;

void countOwnSignal(int /*signal*/) {
    ownSignals = ownSignals + 1;
}

bool isDefaultAction() {
    struct sigaction action = {};
    EXPECT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
    return action.sa_handler == SIG_DFL;
}

// A program that has started with the level 7, and tells what it does. There is no syslog daemon: nothing was announced
// at the start.
class TangleSignal : public TangleFixture {
protected:
    TangleSignal() {
        turnDiagnosticsOn();
        maskAtStart("myprog 7\n");
    }

    // The mask after the program has been sent the signal.
    static int maskAfterSignal(const std::string& levelLines) {
        writeLevels(levelLines);
        raise(SIGUSR1);
        return mask();
    }
};

using TangleSignalAction = TangleFixture;

} // namespace

TEST_F(TangleSignal, KeepsReadingTheLevelInsideTheHandler) {
    EXPECT_EQ(maskAfterSignal("myprog 3\n"), 0x0f);
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0, 1, 2, 3));
}

TEST_F(TangleSignal, EverySignalIsObeyed) {
    EXPECT_EQ(maskAfterSignal("myprog 3\n"), 0x0f);
    EXPECT_EQ(maskAfterSignal("myprog 6\n"), 0x7f);
    EXPECT_EQ(maskAfterSignal("myprog 1\n"), 0x03);
}

TEST_F(TangleSignal, AChangedFileHasNoEffectBeforeTheSignal) {
    writeLevels("myprog 3\n");
    EXPECT_EQ(mask(), 0xff);
}

TEST_F(TangleSignal, LargeLevelsSetTheSameBitsAsAtTheStart) {
    EXPECT_EQ(maskAfterSignal("myprog 8\n"), 0x1ff);
    EXPECT_EQ(maskAfterSignal("myprog 30\n"), 0x7fffffff);
    EXPECT_EQ(maskAfterSignal("myprog 31\n"), -1);
    EXPECT_EQ(maskAfterSignal("myprog 32\n"), -1);
}

TEST_F(TangleSignal, TheLevelIsAnnouncedAtTheLevelAsPriority) {
    maskAfterSignal("myprog 5\n");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "[loglevel for myprog set to 5]");
    EXPECT_EQ(records[0].priority, LOG_NOTICE);
    EXPECT_EQ(records[0].ident, "myprog");
}

TEST_F(TangleSignal, KeepsTwoDifferentWordingsOfTheAnnouncement) {
    writePidFile();
    maskAtStart("myprog 4\n");
    maskAfterSignal("myprog 5\n");
    EXPECT_THAT(log().texts(), ElementsAre("[Log level for myprog set to 4]", "[loglevel for myprog set to 5]"));
}

TEST_F(TangleSignal, ALevelOfZeroLetsOnlyEmergenciesPassAndIsNotAnnounced) {
    EXPECT_EQ(maskAfterSignal("myprog 0\n"), 0x01);
    EXPECT_THAT(log().texts(), IsEmpty());
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0));
}

TEST_F(TangleSignal, WithoutALevelTheMaskStaysAndNothingIsAnnounced) {
    setlogmask(0x2a);
    for (const std::string line : {"myprog -1\n", "myprog\n", "other 3\n", ""}) {
        EXPECT_EQ(maskAfterSignal(line), 0x2a) << line;
        EXPECT_EQ(levels(), line);
    }
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleSignal, WithoutTheFileTheMaskStaysAndNoFileIsMade) {
    ASSERT_EQ(unlink(kLevelFile), 0);
    setlogmask(0x2a);
    raise(SIGUSR1);
    EXPECT_EQ(mask(), 0x2a);
    EXPECT_FALSE(levelFileExists());
}

TEST_F(TangleSignal, TheInterruptedCodeKeepsItsErrno) {
    ASSERT_EQ(unlink(kLevelFile), 0);
    errno = EDOM;
    raise(SIGUSR1);
    EXPECT_EQ(errno, EDOM);
    writeLevels("myprog 5\n");
    restartLog();
    errno = EDOM;
    raise(SIGUSR1);
    EXPECT_EQ(errno, EDOM);
    EXPECT_THAT(log().texts(), ElementsAre("[loglevel for myprog set to 5]"));
}

TEST_F(TangleSignal, TheInterruptedCodeKeepsItsTokens) {
    char text[] = "one two three";
    EXPECT_STREQ(std::strtok(text, " "), "one");
    maskAfterSignal("myprog 5\n");
    EXPECT_STREQ(std::strtok(nullptr, " "), "two");
}

TEST_F(TangleSignalAction, IsTakenByTheStartOnly) {
    EXPECT_TRUE(isDefaultAction());
    sorrel::sorrel_tangleLog(LOG_INFO, "a message");
    EXPECT_TRUE(isDefaultAction());
    sorrel_tangleLogInit();
    EXPECT_FALSE(isDefaultAction());
}

TEST_F(TangleSignalAction, IsTakenForLevelZeroToo) {
    maskAtStart("myprog 0\n");
    EXPECT_FALSE(isDefaultAction());
}

TEST_F(TangleSignalAction, ReplacesTheOneOfTheApplication) {
    std::signal(SIGUSR1, countOwnSignal);
    raise(SIGUSR1);
    EXPECT_EQ(ownSignals, 1);
    maskAtStart("myprog 7\n");
    writeLevels("myprog 3\n");
    raise(SIGUSR1);
    EXPECT_EQ(ownSignals, 1);
    EXPECT_EQ(mask(), 0x0f);
}

TEST_F(TangleSignalAction, IsSilentWithoutTheSwitchOfTheDiagnostics) {
    maskAtStart("myprog 7\n");
    writeLevels("myprog 3\n");
    raise(SIGUSR1);
    EXPECT_EQ(mask(), 0x0f);
    EXPECT_THAT(log().texts(), IsEmpty());
}
