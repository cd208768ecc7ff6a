// The parser of level descriptions.
#include "core/level_descriptions.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Pairs = std::vector<std::pair<unsigned int, std::string>>;

Pairs parsed(const std::string& descriptions) {
    sorrel_component component{"c", 0, {}};
    sorrel::parseLevelDescriptions(component, descriptions);
    return component.levelDescriptions;
}

} // namespace

TEST(LevelDescriptions, TextsWithoutAnEntryAppendNothing) {
    EXPECT_THAT(parsed(""), IsEmpty());
    EXPECT_THAT(parsed(","), IsEmpty());
    EXPECT_THAT(parsed(",,,"), IsEmpty());
    EXPECT_THAT(parsed("="), IsEmpty());
    EXPECT_THAT(parsed("=,="), IsEmpty());
}

TEST(LevelDescriptions, EntriesAreAppendedInTheirOrder) {
    EXPECT_THAT(parsed("1=EMERG,2=ALERT"), ElementsAre(Pair(1, "EMERG"), Pair(2, "ALERT")));
    EXPECT_THAT(parsed("2=ALERT,1=EMERG"), ElementsAre(Pair(2, "ALERT"), Pair(1, "EMERG")));
}

TEST(LevelDescriptions, TheSameEntryTwiceGivesTwoPairs) {
    EXPECT_THAT(parsed("8=ERR,8=ERR"), ElementsAre(Pair(8, "ERR"), Pair(8, "ERR")));
}

TEST(LevelDescriptions, EmptyEntriesAreSkipped) {
    EXPECT_THAT(parsed(",8=ERR,,16=WARN,"), ElementsAre(Pair(8, "ERR"), Pair(16, "WARN")));
}

TEST(LevelDescriptions, DoubledAndLeadingEqualsSignsDoNoHarm) {
    EXPECT_THAT(parsed("8==ERR"), ElementsAre(Pair(8, "ERR")));
    EXPECT_THAT(parsed("=8=ERR"), ElementsAre(Pair(8, "ERR")));
    EXPECT_THAT(parsed("8=ERR="), ElementsAre(Pair(8, "ERR")));
}

TEST(LevelDescriptions, AnEntryOfOnePieceIsSkipped) {
    EXPECT_THAT(parsed("8="), IsEmpty());
    EXPECT_THAT(parsed("=ERR"), IsEmpty());
    EXPECT_THAT(parsed("8"), IsEmpty());
}

TEST(LevelDescriptions, AnEntryOfThreePiecesOrMoreIsSkipped) {
    EXPECT_THAT(parsed("8=ERR=x"), IsEmpty());
    EXPECT_THAT(parsed("8=ERR=x=y"), IsEmpty());
    EXPECT_THAT(parsed("8=ERR=x,16=WARN"), ElementsAre(Pair(16, "WARN")));
}

TEST(LevelDescriptions, KeepsTheBlanksOfAName) {
    EXPECT_THAT(parsed(" 8 = ERR"), ElementsAre(Pair(8, " ERR")));
    EXPECT_THAT(parsed("8=NOT SO BAD\t "), ElementsAre(Pair(8, "NOT SO BAD\t ")));
    EXPECT_THAT(parsed("8= "), ElementsAre(Pair(8, " ")));
}

TEST(LevelDescriptions, TheMaskEndsAtTheFirstCharacterThatIsNoDigit) {
    EXPECT_THAT(parsed("abc=X"), ElementsAre(Pair(0, "X")));
    EXPECT_THAT(parsed("8abc=X"), ElementsAre(Pair(8, "X")));
    EXPECT_THAT(parsed("8.9=X"), ElementsAre(Pair(8, "X")));
    EXPECT_THAT(parsed("- 8=X"), ElementsAre(Pair(0, "X")));
}

TEST(LevelDescriptions, HexadecimalIsNotUnderstoodAndALeadingZeroIsDecimal) {
    EXPECT_THAT(parsed("0x10=X"), ElementsAre(Pair(0, "X")));
    EXPECT_THAT(parsed("010=X"), ElementsAre(Pair(10, "X")));
}

TEST(LevelDescriptions, WhiteSpaceAndASignMayPrecedeTheDigits) {
    EXPECT_THAT(parsed("\t\n 16=X"), ElementsAre(Pair(16, "X")));
    EXPECT_THAT(parsed("+16=X"), ElementsAre(Pair(16, "X")));
}

TEST(LevelDescriptions, ANegativeMaskKeepsItsBits) {
    EXPECT_THAT(parsed("-1=ANY"), ElementsAre(Pair(4294967295U, "ANY")));
    EXPECT_THAT(parsed("-2=X"), ElementsAre(Pair(0xfffffffeU, "X")));
}

TEST(LevelDescriptions, NumbersOutOfRangeGiveTheLimitsOf32Bits) {
    EXPECT_THAT(parsed("2147483647=X"), ElementsAre(Pair(0x7fffffffU, "X")));
    EXPECT_THAT(parsed("2147483648=X"), ElementsAre(Pair(0x7fffffffU, "X")));
    EXPECT_THAT(parsed("4294967295=X"), ElementsAre(Pair(0x7fffffffU, "X")));
    EXPECT_THAT(parsed("99999999999999999999999=X"), ElementsAre(Pair(0x7fffffffU, "X")));
    EXPECT_THAT(parsed("-2147483648=X"), ElementsAre(Pair(0x80000000U, "X")));
    EXPECT_THAT(parsed("-4294967295=X"), ElementsAre(Pair(0x80000000U, "X")));
    EXPECT_THAT(parsed("-99999999999999999999999=X"), ElementsAre(Pair(0x80000000U, "X")));
}

TEST(LevelDescriptions, AppendToWhatTheComponentHas) {
    sorrel_component component{"c", 0x55, {{1, "B"}}};
    sorrel::parseLevelDescriptions(component, "4=A");
    EXPECT_THAT(component.levelDescriptions, ElementsAre(Pair(1, "B"), Pair(4, "A")));
    EXPECT_EQ(component.name, "c");
    EXPECT_EQ(component.mask, 0x55U);
}

TEST(LevelDescriptions, ATextWithoutAnAcceptableEntryLeavesTheComponentAsItWas) {
    sorrel_component component{"c", 0, {{1, "B"}}};
    sorrel::parseLevelDescriptions(component, "x,8=,1=2=3");
    EXPECT_THAT(component.levelDescriptions, ElementsAre(Pair(1, "B")));
}
