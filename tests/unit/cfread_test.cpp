// The syntax of `key=value` files: what the reader makes of each line.
#include "cfread_support.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr int kReportEmpty = 1;

using CfreadSyntax = CfreadFixture;

} // namespace

TEST_F(CfreadSyntax, ALineYieldsItsKeyAndItsValue) {
    const CfreadResult result = parse("name=value\n");
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, ElementsAre(Pair("name", "value")));
}

TEST_F(CfreadSyntax, LinesComeInTheOrderOfTheFileRepetitionsIncluded) {
    EXPECT_THAT(parse("b=1\na=2\nb=3\n").entries, ElementsAre(Pair("b", "1"), Pair("a", "2"), Pair("b", "3")));
}

TEST_F(CfreadSyntax, AnEmptyFileIsASuccessWithoutEntries) {
    const CfreadResult result = parse("", kReportEmpty);
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, IsEmpty());
}

TEST_F(CfreadSyntax, EverySpaceOfTheKeyVanishes) {
    EXPECT_THAT(parse("  my  long key = v\n").entries, ElementsAre(Pair("mylongkey", "v")));
}

TEST_F(CfreadSyntax, SpacesDirectlyBehindTheEqualsSignAreSkipped) {
    EXPECT_THAT(parse("k=   v\n").entries, ElementsAre(Pair("k", "v")));
}

TEST_F(CfreadSyntax, KeepsSpacesInsideAndBehindTheValue) {
    EXPECT_THAT(parse("my key= a  b \n").entries, ElementsAre(Pair("mykey", "a  b ")));
}

TEST_F(CfreadSyntax, AValueOfNothingButSpacesIsEmpty) {
    EXPECT_THAT(parse("k=   \n", kReportEmpty).entries, ElementsAre(Pair("k", "")));
}

TEST_F(CfreadSyntax, KeepsTabsAsCharactersOfTheKey) {
    EXPECT_THAT(parse("\tk\t=v\n").entries, ElementsAre(Pair("\tk\t", "v")));
}

TEST_F(CfreadSyntax, TabsAreCharactersOfTheValueAndEndTheSkippingOfSpaces) {
    EXPECT_THAT(parse("a=\t 1\t\nb= \t 2\n").entries, ElementsAre(Pair("a", "\t 1\t"), Pair("b", "\t 2")));
}

TEST_F(CfreadSyntax, TheFirstEqualsSignEndsTheKeyAndLaterOnesBelongToTheValue) {
    EXPECT_THAT(parse("k=a=b==\n").entries, ElementsAre(Pair("k", "a=b==")));
    EXPECT_THAT(parse("k==v\n").entries, ElementsAre(Pair("k", "=v")));
}

TEST_F(CfreadSyntax, ALineWithoutAnEqualsSignYieldsAKeyAndAnEmptyValue) {
    EXPECT_THAT(parse("lonely key\n", kReportEmpty).entries, ElementsAre(Pair("lonelykey", "")));
}

TEST_F(CfreadSyntax, ALineThatBeginsWithAnEqualsSignYieldsAnEmptyKey) {
    EXPECT_THAT(parse("=v\n", kReportEmpty).entries, ElementsAre(Pair("", "v")));
}

TEST_F(CfreadSyntax, AnEmptyLineYieldsAnEmptyKeyAndAnEmptyValue) {
    EXPECT_THAT(parse("\n   \n=\n", kReportEmpty).entries, ElementsAre(Pair("", ""), Pair("", ""), Pair("", "")));
}

TEST_F(CfreadSyntax, ANumberSignInTheFirstColumnMakesTheLineAComment) {
    EXPECT_THAT(parse("#k=v\n#\na=1\n", kReportEmpty).entries, ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadSyntax, ANumberSignAnywhereElseIsAnOrdinaryCharacter) {
    EXPECT_THAT(parse("k#1=v # no comment\n").entries, ElementsAre(Pair("k#1", "v # no comment")));
}

TEST_F(CfreadSyntax, ASpaceBeforeTheNumberSignMakesItTheStartOfAKey) {
    EXPECT_THAT(parse(" #no comment\n #k=v\n", kReportEmpty).entries,
                ElementsAre(Pair("#nocomment", ""), Pair("#k", "v")));
}

TEST_F(CfreadSyntax, BytesWithTheHighBitAreDroppedFromKeyAndValue) {
    std::string high;
    for (int byte = 0x80; byte <= 0xff; ++byte) {
        high += static_cast<char>(byte);
    }
    EXPECT_THAT(parse(high + "a" + high + "b=" + high + "1" + high + "2" + high + "\n").entries,
                ElementsAre(Pair("ab", "12")));
}

TEST_F(CfreadSyntax, ALineOfDroppedBytesYieldsAnEmptyKeyAndAnEmptyValue) {
    EXPECT_THAT(parse("\xc3\xa4=\xc3\xb6\n", kReportEmpty).entries, ElementsAre(Pair("", "")));
}

TEST_F(CfreadSyntax, TheOtherBytesBelow128AreOrdinaryCharacters) {
    std::string low;
    for (int byte = 1; byte < 0x80; ++byte) {
        const char character = static_cast<char>(byte);
        if (character != '\n' && character != '\r' && character != ' ' && character != '=') {
            low += character;
        }
    }
    EXPECT_THAT(parse(low + "=" + low + "\n").entries, ElementsAre(Pair(low, low)));
}

TEST_F(CfreadSyntax, ACarriageReturnEndsTheLine) {
    EXPECT_THAT(parse("a=1\r\nb\r\nc=3\r\n", kReportEmpty).entries,
                ElementsAre(Pair("a", "1"), Pair("b", ""), Pair("c", "3")));
}

TEST_F(CfreadSyntax, WhatFollowsACarriageReturnIsIgnored) {
    std::string text = "a=1\rb=2";
    text += kNullByte;
    text += "\nk\r=v\n";
    const CfreadResult result = parse(text, kReportEmpty);
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1"), Pair("k", "")));
}

TEST_F(CfreadSyntax, ACarriageReturnIsEnoughToEndTheLastLine) {
    const CfreadResult result = parse("a=1\nb=2\r");
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(CfreadSyntax, ACommentAsTheLastLineNeedsNoLineFeed) {
    const CfreadResult result = parse("a=1\n#the end");
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadSyntax, AKeyAndAValueOf255CharactersAreAccepted) {
    const std::string longest(255, 'x');
    EXPECT_THAT(parse(longest + "=" + longest + "\n").entries, ElementsAre(Pair(longest, longest)));
}

TEST_F(CfreadSyntax, SpacesAndDroppedBytesInsideAKeyDoNotCount) {
    const std::string kept(254, 'x');
    EXPECT_THAT(parse(std::string(200, ' ') + kept + "\x80 " + "y=v\n").entries, ElementsAre(Pair(kept + "y", "v")));
}

TEST_F(CfreadSyntax, DroppedBytesOfAValueDoNotCount) {
    const std::string longest(255, 'x');
    EXPECT_THAT(parse("k=" + longest + std::string(300, '\x80') + "\n").entries, ElementsAre(Pair("k", longest)));
}

TEST_F(CfreadSyntax, ALineMayHave1023CharactersWithItsLineFeed) {
    const std::string spaces(1019, ' ');
    EXPECT_THAT(parse("k" + spaces + "=v\na=1\n").entries, ElementsAre(Pair("k", "v"), Pair("a", "1")));
}

TEST_F(CfreadSyntax, ACommentMayHave1023CharactersWithItsLineFeed) {
    EXPECT_THAT(parse("#" + std::string(1021, 'x') + "\na=1\n", kReportEmpty).entries, ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadSyntax, TheRestOfALongerCommentIsTheNextLine) {
    const std::string comment = "#" + std::string(1022, 'x');
    EXPECT_THAT(parse(comment + "k=v\n", kReportEmpty).entries, ElementsAre(Pair("k", "v")));
    EXPECT_THAT(parse(comment + "\na=1\n", kReportEmpty).entries, ElementsAre(Pair("", ""), Pair("a", "1")));
}

TEST_F(CfreadSyntax, TheRestOfALongLineBehindACarriageReturnIsTheNextLine) {
    EXPECT_THAT(parse("k=v\r" + std::string(1019, 'x') + "a=1\n").entries, ElementsAre(Pair("k", "v"), Pair("a", "1")));
}
