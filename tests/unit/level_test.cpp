// Levels: the records, the predefined ones, and what is made of them.
#include <sorrel/component.hpp>
#include <sorrel/level.h>
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <climits>
#include <gmock/gmock.h>
#include <set>
#include <thread>

namespace {

struct Predefined {
    sorrel_level* level;
    int numeric;
    unsigned int mask;
    int priority;
};

// Each predefined record once.
std::vector<Predefined> predefinedLevels() {
    return {{SR_EMERG, 0, 0x1, 0},        {SR_ALERT, 1, 0x2, 1},       {SR_CRIT, 2, 0x4, 2},  {SR_ERR, 3, 0x8, 3},
            {SR_WARNING, 4, 0x10, 4},     {SR_NOTICE, 5, 0x20, 5},     {SR_INFO, 6, 0x40, 6}, {SR_DEBUG, 7, 0x80, 7},
            {SR_ENTERLEAVE, 8, 0x100, 7}, {SR_ALL, 32, 0xffffffffU, 7}};
}

unsigned int maskOfNumeric(int numeric) {
    const sorrel_level* const level = sorrel_level_create(numeric);
    EXPECT_EQ(level->numeric, numeric);
    return level->mask;
}

bool passes(unsigned int componentMask, unsigned int levelMask) {
    const sorrel_component component{"c", componentMask, {}};
    const sorrel_level level{0, levelMask};
    return sorrel::enabled(&component, &level);
}

} // namespace

TEST(Level, ErrAndErrorAreOneRecord) {
    EXPECT_EQ(SR_ERR, SR_ERROR);
}

TEST(Level, WarningAndWarnAreOneRecord) {
    EXPECT_EQ(SR_WARNING, SR_WARN);
}

TEST(Level, AllOtherPredefinedPointersAreDistinct) {
    std::set<const sorrel_level*> records;
    for (const Predefined& expected : predefinedLevels()) {
        records.insert(expected.level);
    }
    EXPECT_EQ(records.size(), predefinedLevels().size());
    EXPECT_EQ(records.count(nullptr), 0U);
}

TEST(Level, PredefinedLevelsHaveTheirNumericAndTheirBits) {
    for (const Predefined& expected : predefinedLevels()) {
        EXPECT_EQ(expected.level->numeric, expected.numeric);
        EXPECT_EQ(expected.level->mask, expected.mask) << expected.numeric;
    }
}

TEST(Level, PredefinedLevelsHaveTheirSyslogPriority) {
    for (const Predefined& expected : predefinedLevels()) {
        EXPECT_EQ(sorrel_level_to_prio(expected.level), expected.priority) << expected.numeric;
    }
}

TEST(Level, ANumericFrom0To31GivesItsBit) {
    EXPECT_EQ(maskOfNumeric(0), 0x1U);
    EXPECT_EQ(maskOfNumeric(31), 0x80000000U);
    unsigned int bit = 1;
    for (int numeric = 0; numeric < 32; ++numeric) {
        EXPECT_EQ(maskOfNumeric(numeric), bit) << numeric;
        bit *= 2;
    }
}

TEST(Level, ANumericFrom32To255GivesAnEmptyMask) {
    EXPECT_EQ(maskOfNumeric(32), 0U);
    for (int numeric = 32; numeric < 256; ++numeric) {
        EXPECT_EQ(maskOfNumeric(numeric), 0U) << numeric;
    }
}

TEST(Level, KeepsTheLowEightBitsOfTheNumericAsShiftCount) {
    EXPECT_EQ(maskOfNumeric(256), 0x1U);
    EXPECT_EQ(maskOfNumeric(257), 0x2U);
    EXPECT_EQ(maskOfNumeric(256 + 31), 0x80000000U);
    EXPECT_EQ(maskOfNumeric(256 + 32), 0U);
    EXPECT_EQ(maskOfNumeric(-1), 0U);
    EXPECT_EQ(maskOfNumeric(-255), 0x2U);
    EXPECT_EQ(maskOfNumeric(-256), 0x1U);
    EXPECT_EQ(maskOfNumeric(INT_MIN), 0x1U);
    EXPECT_EQ(maskOfNumeric(INT_MAX), 0U);
}

TEST(Level, TheTwoArgumentFormTakesBothValuesAsTheyAre) {
    const sorrel_level* const level = sorrel::sorrel_level_create(-7, 0xdeadbeefU);
    EXPECT_EQ(level->numeric, -7);
    EXPECT_EQ(level->mask, 0xdeadbeefU);
}

TEST(Level, EqualValuesGiveTwoRecords) {
    const sorrel_level* const first = sorrel_level_create(5);
    const sorrel_level* const second = sorrel_level_create(5);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->numeric, second->numeric);
    EXPECT_EQ(first->mask, second->mask);
}

TEST(Level, RecordsStayWhereTheyAre) {
    std::vector<const sorrel_level*> levels;
    for (int i = 0; i < 10000; ++i) {
        levels.push_back(sorrel::sorrel_level_create(i, static_cast<unsigned int>(i) * 3));
    }
    for (int i = 0; i < 10000; ++i) {
        const sorrel_level* const level = levels[static_cast<std::size_t>(i)];
        ASSERT_EQ(level->numeric, i);
        ASSERT_EQ(level->mask, static_cast<unsigned int>(i) * 3);
    }
}

TEST(Level, ThreadsThatCreateAtTheSameTimeGetRecordsOfTheirOwn) {
    constexpr int kThreads = 4;
    constexpr int kLevels = 1000;
    std::vector<std::vector<const sorrel_level*>> created(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i, &mine = created[static_cast<std::size_t>(i)]] {
            for (int k = 0; k < kLevels; ++k) {
                mine.push_back(sorrel::sorrel_level_create(i, static_cast<unsigned int>(k)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<const sorrel_level*> all;
    for (int i = 0; i < kThreads; ++i) {
        for (int k = 0; k < kLevels; ++k) {
            const sorrel_level* const level = created[static_cast<std::size_t>(i)][static_cast<std::size_t>(k)];
            all.insert(level);
            ASSERT_EQ(level->numeric, i);
            ASSERT_EQ(level->mask, static_cast<unsigned int>(k));
        }
    }
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads) * kLevels);
}

TEST(LevelCollection, ErrWarnAndDebugGiveTheUnionOfTheirMasks) {
    sorrel_level* const levels[] = {SR_ERR, SR_WARN, SR_DEBUG};
    const sorrel_level_collection collection = {levels, 3};
    const sorrel_level* const combined = sorrel_bitwise_or_collection(&collection);
    EXPECT_EQ(combined->numeric, 32);
    EXPECT_EQ(combined->mask, 0x98U);
}

TEST(LevelCollection, AnEmptyOneGivesAnEmptyMask) {
    const sorrel_level_collection collection = {nullptr, 0};
    const sorrel_level* const combined = sorrel_bitwise_or_collection(&collection);
    EXPECT_EQ(combined->numeric, 32);
    EXPECT_EQ(combined->mask, 0U);
}

TEST(LevelCollection, TheCountAloneBoundsIt) {
    sorrel_level* const levels[] = {SR_ERR, SR_WARN, SR_DEBUG, nullptr};
    const sorrel_level_collection collection = {levels, 2};
    EXPECT_EQ(sorrel_bitwise_or_collection(&collection)->mask, 0x18U);
}

TEST(LevelCollection, EachCallGivesARecordOfItsOwn) {
    sorrel_level* const levels[] = {SR_ERR};
    const sorrel_level_collection collection = {levels, 1};
    const sorrel_level* const first = sorrel_bitwise_or_collection(&collection);
    EXPECT_NE(first, SR_ERR);
    EXPECT_NE(first, sorrel_bitwise_or_collection(&collection));
    EXPECT_EQ(first->numeric, 32);
    EXPECT_EQ(first->mask, 0x8U);
}

TEST(LevelCollection, AListInBracesServesAsOne) {
    EXPECT_EQ(sorrel::sorrel_bitwise_or_collection({SR_EMERG, SR_ENTERLEAVE})->mask, 0x101U);
    EXPECT_EQ(sorrel::sorrel_bitwise_or_collection({})->mask, 0U);
}

TEST(LevelPriority, NullGivesDebug) {
    EXPECT_EQ(sorrel_level_to_prio(nullptr), 7);
    EXPECT_EQ(sorrel::sorrel_level_to_syslog_prio(nullptr), 7);
    EXPECT_EQ(CSorrel::level_to_prio(nullptr), 7);
}

TEST(LevelPriority, ANumericBelow7IsThePriorityAndEveryOtherGivesDebug) {
    for (const int numeric : {0, 1, 2, 3, 4, 5, 6}) {
        EXPECT_EQ(sorrel_level_to_prio(sorrel_level_create(numeric)), numeric);
    }
    for (const int numeric : {7, 8, 9, 32, 255, INT_MAX, -1, -7, INT_MIN}) {
        EXPECT_EQ(sorrel_level_to_prio(sorrel_level_create(numeric)), 7) << numeric;
    }
}

TEST(LevelPriority, TheMaskPlaysNoPart) {
    EXPECT_EQ(sorrel_level_to_prio(sorrel::sorrel_level_create(2, 0)), 2);
    EXPECT_EQ(sorrel_level_to_prio(sorrel::sorrel_level_create(9, 0x1)), 7);
}

TEST(LevelPriority, AllThreeFunctionsGiveTheSame) {
    for (int numeric = -2; numeric < 40; ++numeric) {
        sorrel_level* const level = sorrel_level_create(numeric);
        EXPECT_EQ(sorrel::sorrel_level_to_syslog_prio(level), sorrel_level_to_prio(level));
        EXPECT_EQ(CSorrel::level_to_prio(level), sorrel_level_to_prio(level));
    }
}

TEST(Level, ItsTwoValuesCanBeRead) {
    const sorrel_level* const level = sorrel::sorrel_level_create(-3, 0x12345678U);
    EXPECT_EQ(sorrel::sorrel_level_to_numeric(level), -3);
    EXPECT_EQ(sorrel::sorrel_level_to_mask(level), 0x12345678U);
}

TEST(LevelTest, AMessagePassesWhenTheMasksShareABit) {
    EXPECT_TRUE(passes(0x8, SR_ERR->mask));
    EXPECT_FALSE(passes(0x8, SR_WARN->mask));
    EXPECT_TRUE(passes(0x80000000U, 0x80000001U));
    EXPECT_FALSE(passes(0, 0xffffffffU));
}

TEST(LevelTest, AFullMaskPassesEveryLevelThatHasABit) {
    for (int bit = 0; bit < 32; ++bit) {
        EXPECT_TRUE(passes(0xffffffffU, 1U << bit)) << bit;
    }
}

TEST(LevelTest, NothingPassesAtALevelWithoutBits) {
    EXPECT_FALSE(passes(0xffffffffU, 0));
}

TEST(LevelTest, NothingPassesWithoutAComponentOrALevel) {
    const sorrel_component component{"c", 0xffffffffU, {}};
    EXPECT_FALSE(sorrel::enabled(nullptr, SR_ALL));
    EXPECT_FALSE(sorrel::enabled(&component, nullptr));
    EXPECT_FALSE(sorrel::enabled(nullptr, nullptr));
}
