// Sets of levels as people write them.
#include <sorrel/level_set.hpp>

#include <gtest/gtest.h>

using sorrel::LevelSet;

namespace {

std::uint32_t maskOf(const char* words) {
    return LevelSet(std::string(words)).mask();
}

std::string complaintAbout(const char* words) {
    try {
        return "accepted as " + std::to_string(maskOf(words));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

} // namespace

TEST(LevelSet, EachLevelHasItsBit) {
    const char* const names[] = {"emerg", "alert", "crit", "error", "warn", "notice", "info", "debug", "trace"};
    for (int numeric = 0; numeric < sorrel::kNamedLevels; ++numeric) {
        EXPECT_EQ(maskOf(names[numeric]), 1U << numeric) << names[numeric];
        EXPECT_EQ(maskOf(sorrel::levelName(numeric)), 1U << numeric) << names[numeric];
    }
}

TEST(LevelSet, LevelsWithTwoNamesHaveBoth) {
    EXPECT_EQ(maskOf("err"), maskOf("error"));
    EXPECT_EQ(maskOf("warning"), maskOf("warn"));
    EXPECT_EQ(maskOf("EnterLeave"), maskOf("trace"));
}

TEST(LevelSet, WordsAreJoined) {
    EXPECT_EQ(maskOf("err;warning"), 0x18U);
    EXPECT_EQ(maskOf("err;err"), 0x8U);
}

TEST(LevelSet, UpToHoldsTheLevelAndAllThatIsGraver) {
    EXPECT_EQ(maskOf("upto:emerg"), 0x1U);
    EXPECT_EQ(maskOf("upto:info"), 0x7fU);
    EXPECT_EQ(maskOf("upto:enterleave"), 0x1ffU);
}

TEST(LevelSet, AllHoldsEveryBit) {
    EXPECT_EQ(maskOf("all"), 0xffffffffU);
}

TEST(LevelSet, MasksAreHexadecimal) {
    EXPECT_EQ(maskOf("0x1ff"), 0x1ffU);
    EXPECT_EQ(maskOf("0xFFFFFFFF"), 0xffffffffU);
    EXPECT_EQ(maskOf("0x0"), 0U);
    EXPECT_EQ(maskOf("0x200;err"), 0x208U);
}

TEST(LevelSet, MinusTakesOut) {
    EXPECT_EQ(maskOf("all;-enterleave"), 0xfffffeffU);
    EXPECT_EQ(maskOf("upto:info;-0xf"), 0x70U);
    EXPECT_EQ(maskOf("all;-upto:info"), 0xffffff80U);
}

TEST(LevelSet, WordsCountFromLeftToRight) {
    EXPECT_EQ(maskOf("err;-err"), 0U);
    EXPECT_EQ(maskOf("all;-err;err"), 0xffffffffU);
}

TEST(LevelSet, BehindNothingButAMinusStandsAll) {
    EXPECT_EQ(maskOf("-debug"), 0xffffff7fU);
    EXPECT_EQ(maskOf("-debug;-info"), 0xffffff3fU);
}

TEST(LevelSet, WhatIsNoLevelIsNamed) {
    EXPECT_EQ(complaintAbout("err;eror"), "\"eror\" is no level");
    EXPECT_EQ(complaintAbout(""), "\"\" is no level");
    EXPECT_EQ(complaintAbout("err;"), "\"\" is no level");
    EXPECT_EQ(complaintAbout("-"), "\"\" is no level");
    EXPECT_EQ(complaintAbout("--err"), "\"-err\" is no level");
    EXPECT_EQ(complaintAbout("upto:"), "\"upto:\" is no level");
    EXPECT_EQ(complaintAbout("7"), "\"7\" is no level");
    EXPECT_EQ(complaintAbout(" err"), "\" err\" is no level");
}

TEST(LevelSet, WhatIsNoMaskIsNamed) {
    for (const std::string word : {"0x", "0x1g", "0x100000000", "0x-1"}) {
        EXPECT_EQ(complaintAbout(word.c_str()), "\"" + word + "\" is no mask of 32 bits");
    }
}

TEST(LevelSet, ContainsALevelThatSharesABit) {
    const LevelSet set(std::string("err;0x8000"));
    EXPECT_TRUE(set.contains({3, 0x8}));
    EXPECT_TRUE(set.contains({32, 0x18}));
    EXPECT_TRUE(set.contains({32, 0x8000}));
    EXPECT_FALSE(set.contains({4, 0x10}));
    EXPECT_FALSE(set.contains({32, 0}));
}

TEST(LevelSet, LevelsWithoutANameHaveNone) {
    EXPECT_EQ(sorrel::levelName(-1), nullptr);
    EXPECT_EQ(sorrel::levelName(9), nullptr);
    EXPECT_EQ(sorrel::levelName(32), nullptr);
    EXPECT_EQ(sorrel::levelNumeric("none"), -1);
}
