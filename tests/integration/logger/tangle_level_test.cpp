// The level of a program at its start: the file, the mask of the system log, the announcement.
#include "proc_self.hpp"
#include "tangle_fixture.hpp"

#include <gmock/gmock.h>

using sorrel::sorrel_tangleLogInit;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kAllPriorities = 0xff;
constexpr int kEveryBit = -1;
constexpr std::size_t kPiece = 79; // characters of a line that are read at once

using TangleLevel = TangleFixture;

class TangleAnnouncement : public TangleFixture {
protected:
    TangleAnnouncement() {
        turnDiagnosticsOn();
        writePidFile();
    }
};

} // namespace

TEST_F(TangleLevel, TheLineOfTheProgramSetsTheMask) {
    EXPECT_EQ(maskAtStart("myprog 3\n"), 0x0f);
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(levels(), "myprog 3\n");
}

TEST_F(TangleLevel, ALevelLetsPassThePrioritiesFromZeroToItself) {
    for (int level = 0; level <= 7; ++level) {
        EXPECT_EQ(maskAtStart("myprog " + std::to_string(level) + "\n"), (2 << level) - 1);
        std::vector<int> passing;
        for (int priority = 0; priority <= level; ++priority) {
            passing.push_back(priority);
        }
        EXPECT_EQ(arrivingPriorities(), passing) << level;
    }
}

TEST_F(TangleLevel, ALevelAboveSevenSetsFurtherBits) {
    EXPECT_EQ(maskAtStart("myprog 8\n"), 0x1ff);
    EXPECT_EQ(maskAtStart("myprog 30\n"), 0x7fffffff);
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(TangleLevel, ALevelFrom31OnSetsEveryBit) {
    for (const char* level :
         {"31", "32", "33", "64", "2147483647", "2147483648", "4294967296", "99999999999999999999"}) {
        EXPECT_EQ(maskAtStart(std::string("myprog ") + level + "\n"), kEveryBit) << level;
    }
}

TEST_F(TangleLevel, ALevelOfZeroLetsOnlyEmergenciesPass) {
    EXPECT_EQ(maskAtStart("myprog 0\n"), 0x01);
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0));
}

TEST_F(TangleLevel, ASecondWordThatIsNoNumberIsLevelZero) {
    EXPECT_EQ(maskAtStart("myprog debug\n"), 0x01);
}

TEST_F(TangleLevel, ANumberEndsAtItsLastDigit) {
    EXPECT_EQ(maskAtStart("myprog 5x\n"), 0x3f);
    EXPECT_EQ(maskAtStart("myprog +4\n"), 0x1f);
    EXPECT_EQ(maskAtStart("myprog 2 7\n"), 0x07);
    EXPECT_EQ(maskAtStart("myprog 6"), 0x7f);
}

TEST_F(TangleLevel, SeveralBlanksSeparateAsOneDoes) {
    EXPECT_EQ(maskAtStart("myprog    4\n"), 0x1f);
}

TEST_F(TangleLevel, TheFirstLineThatContainsTheNameCounts) {
    EXPECT_EQ(maskAtStart("alpha 1\n\nbeta 2\nmyprog 3\nmyprog 5\n"), 0x0f);
}

TEST_F(TangleLevel, KeepsTheMatchAnywhereInTheLine) {
    EXPECT_EQ(maskAtStart("myprog2 4\nmyprog 6\n"), 0x1f);
    EXPECT_EQ(maskAtStart("notmyprog 2\nmyprog 6\n"), 0x07);
    EXPECT_EQ(maskAtStart("# myprog 1\nmyprog 6\n"), 0x03);
    EXPECT_EQ(maskAtStart("/usr/bin/myprog 3\n"), 0x0f);
}

TEST_F(TangleLevel, TheMatchIsCaseSensitive) {
    EXPECT_EQ(maskAtStart("MyProg 2\nmyprog 3\n"), 0x0f);
}

TEST_F(TangleLevel, WithoutAFileTheDefaultIsWrittenAndEverythingPasses) {
    setlogmask(LOG_MASK(LOG_NOTICE));
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), kAllPriorities);
    EXPECT_EQ(levels(), "myprog 7\n");
}

TEST_F(TangleLevel, WithoutAnEntryTheDefaultIsAppendedAndEverythingPasses) {
    EXPECT_EQ(maskAtStart("other 3\n"), kAllPriorities);
    EXPECT_EQ(levels(), "other 3\nmyprog 7\n");
    EXPECT_THAT(arrivingPriorities(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(TangleLevel, TheAppendedLineIsFoundAtTheNextStart) {
    sorrel_tangleLogInit();
    setlogmask(LOG_MASK(LOG_NOTICE));
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), kAllPriorities);
    EXPECT_EQ(levels(), "myprog 7\n");
}

TEST_F(TangleLevel, ANegativeLevelCountsAsNoEntry) {
    EXPECT_EQ(maskAtStart("myprog -1\n"), kAllPriorities);
    EXPECT_EQ(levels(), "myprog -1\nmyprog 7\n");
    EXPECT_EQ(maskAtStart("myprog -5\n"), kAllPriorities);
    EXPECT_EQ(maskAtStart("myprog -4294967293\n"), kAllPriorities); // 3 in 32 bits
}

TEST_F(TangleLevel, ALineWithoutASecondWordCountsAsNoEntry) {
    for (const std::string line : {"myprog\n", "myprog", "myprog\t3\n", "other myprog\n", "myprog=3\n"}) {
        EXPECT_EQ(maskAtStart(line), kAllPriorities) << line;
        EXPECT_EQ(levels(), line + "myprog 7\n");
    }
}

TEST_F(TangleLevel, AFirstLineThatIsNoEntryHidesLaterOnes) {
    EXPECT_EQ(maskAtStart("myprog\nmyprog 3\n"), kAllPriorities);
    sorrel_tangleLogInit();
    EXPECT_EQ(levels(), "myprog\nmyprog 3\nmyprog 7\nmyprog 7\n");
}

TEST_F(TangleLevel, ALongLineIsReadInPiecesThatCountAsLines) {
    EXPECT_EQ(maskAtStart(std::string(kPiece, 'x') + "myprog 3\n"), 0x0f);
    EXPECT_EQ(maskAtStart(std::string(2 * kPiece, 'x') + "myprog 4\n"), 0x1f);
}

TEST_F(TangleLevel, ANameThatIsCutByTheEndOfAPieceIsNotFound) {
    EXPECT_EQ(maskAtStart(std::string(kPiece - 1, 'x') + "myprog 3\n"), kAllPriorities);
}

TEST_F(TangleLevel, ALevelBehindTheEndOfAPieceIsNotSeen) {
    const std::string filler(kPiece - std::string("myprog ").size(), 'x');
    EXPECT_EQ(maskAtStart(filler + "myprog 3\n"), kAllPriorities);
    EXPECT_EQ(maskAtStart(filler.substr(1) + "myprog 15\n"), 0x03);
}

TEST_F(TangleLevel, TheNameIsTheBaseNameOfTheProgram) {
    setProgramName("some/where/myprog");
    EXPECT_EQ(maskAtStart("where 2\nmyprog 3\n"), 0x0f);
    EXPECT_EQ(maskAtStart(""), kAllPriorities);
    EXPECT_EQ(levels(), "myprog 7\n");
}

TEST_F(TangleLevel, AFileThatCannotBeWrittenIsLeftAloneSilently) {
    turnDiagnosticsOn();
    writeLevels("other 3\n");
    makeEtcReadOnly();
    setlogmask(LOG_MASK(LOG_NOTICE));
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), kAllPriorities);
    EXPECT_EQ(levels(), "other 3\n");
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleLevel, AFileThatCannotBeMadeIsMissedSilently) {
    turnDiagnosticsOn();
    makeEtcReadOnly();
    setlogmask(LOG_MASK(LOG_NOTICE));
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), kAllPriorities);
    EXPECT_FALSE(levelFileExists());
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleLevel, AFileThatCannotBeReadIsAsGoodAsNone) {
    writeLevels("myprog 3\n");
    setObeyedMode(kLevelFile, 0200);
    setlogmask(LOG_MASK(LOG_NOTICE));
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), kAllPriorities);
    ASSERT_EQ(chmod(kLevelFile, 0600), 0);
    EXPECT_EQ(levels(), "myprog 3\n");
}

TEST_F(TangleLevel, TheFileIsClosedInEveryCase) {
    maskAtStart("");
    const auto before = openDescriptors();
    maskAtStart("myprog 3\n");
    maskAtStart("myprog\n");
    maskAtStart("other 3\n");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TangleLevel, SyslogIsOpenedUnderTheNameOfTheProgramWithItsNumber) {
    openlog("other", 0, LOG_LOCAL3);
    setProgramName("some/where/myprog");
    sorrel_tangleLogInit();
    syslog(LOG_INFO, "hello");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].ident, "myprog");
    EXPECT_EQ(records[0].pid, getpid());
    EXPECT_EQ(records[0].facility, LOG_USER);
}

TEST_F(TangleLevel, SyslogIsConnectedAtOnce) {
    closelog();
    const std::size_t before = openDescriptors().size();
    sorrel_tangleLogInit();
    EXPECT_EQ(openDescriptors().size(), before + 1);
}

TEST_F(TangleAnnouncement, TellsTheLevelAtTheLevelAsPriority) {
    maskAtStart("myprog 3\n");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "[Log level for myprog set to 3]");
    EXPECT_EQ(records[0].priority, LOG_ERR);
    EXPECT_EQ(records[0].facility, LOG_USER);
}

TEST_F(TangleAnnouncement, TellsTheDefaultLevelWhenThereIsNoEntry) {
    maskAtStart("other 3\n");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "[Log level for myprog set to 7]");
    EXPECT_EQ(records[0].priority, LOG_DEBUG);
}

TEST_F(TangleAnnouncement, OfALevelAboveSevenGoesToTheFacilityOfItsBits) {
    maskAtStart("myprog 27\n");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "[Log level for myprog set to 27]");
    EXPECT_EQ(records[0].facility, LOG_DAEMON);
    EXPECT_EQ(records[0].priority, LOG_ERR);
}

TEST_F(TangleAnnouncement, IsNotMadeForLevelZero) {
    maskAtStart("myprog 0\n");
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleAnnouncement, IsNotMadeWithoutASyslogDaemon) {
    ASSERT_EQ(unlink(kPidFile), 0);
    maskAtStart("myprog 3\n");
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleAnnouncement, IsNotMadeWhenTheFileOfTheDaemonCannotBeRead) {
    writeLevels("myprog 3\n");
    setObeyedMode(kPidFile, 0);
    sorrel_tangleLogInit();
    EXPECT_EQ(mask(), 0x0f);
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleAnnouncement, IsNotMadeWithoutTheSwitchOfTheDiagnostics) {
    unsetenv("SORREL_VERBOSE_STARTUP");
    maskAtStart("myprog 3\n");
    EXPECT_THAT(log().texts(), IsEmpty());
}
