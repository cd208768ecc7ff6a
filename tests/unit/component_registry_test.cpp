// The registry of components, in a logger of the test's own that has no configuration.
#include "blocked_thread.hpp"
#include "verbose_diagnostics.hpp"

#include <sorrel/logger.hpp>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Pairs = std::vector<std::pair<unsigned int, std::string>>;

class ComponentRegistry : public testing::Test {
protected:
    std::vector<std::string> names() {
        std::vector<std::string> all;
        logger.getComponentNames(all);
        return all;
    }

    // The mask that a text of binary digits gives.
    unsigned int maskOf(const std::string& digits) {
        EXPECT_EQ(logger.updateComponentLevel("mask", digits), 0);
        return logger.getComponentByName("mask")->mask;
    }

    // Runs an operation in another thread while this one holds the components lock; tells whether it had to wait.
    bool waitsForTheLock(const std::function<void()>& operation) {
        logger.lockComponents();
        ObservedThread thread(operation);
        const bool waits = thread.waitUntilBlocked();
        logger.unlockComponents();
        return waits;
    }

    CSorrel logger{false};
};

class ComponentRegistryDiagnostics : public DiagnosticFixture {
protected:
    CSorrel logger{false};
};

} // namespace

TEST_F(ComponentRegistry, AnUnknownNameIsCreatedWithTheMaskOfTheLevel) {
    const sorrel_component* const component = logger.createComponent("net", SR_ERR, "8=ERR,16=WARN");
    EXPECT_EQ(component->name, "net");
    EXPECT_EQ(component->mask, 0x8U);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(8, "ERR"), Pair(16, "WARN")));
    EXPECT_EQ(logger.getComponentByName("net"), component);
}

TEST_F(ComponentRegistry, OnlyTheMaskOfTheLevelIsRead) {
    EXPECT_EQ(logger.createComponent("net", sorrel::sorrel_level_create(3, 0x700), "")->mask, 0x700U);
}

TEST_F(ComponentRegistry, ANullLevelGivesAnEmptyMask) {
    EXPECT_EQ(logger.createComponent("net", nullptr, "")->mask, 0U);
}

TEST_F(ComponentRegistry, AnyTextIsAName) {
    const std::string odd("a\0b", 3);
    const sorrel_component* const empty = logger.createComponent("", SR_ERR, "");
    const sorrel_component* const withNull = logger.createComponent(odd, SR_ERR, "");
    EXPECT_EQ(logger.getComponentByName(""), empty);
    EXPECT_EQ(logger.getComponentByName(odd), withNull);
    EXPECT_EQ(logger.getComponentByName("a"), nullptr);
}

TEST_F(ComponentRegistry, KeepsASecondComponentWithoutDescriptionsOutOfTheRegistry) {
    const sorrel_component* const first = logger.createComponent("a", SR_ERR, "");
    sorrel_component* const second = logger.createComponent("a", SR_DEBUG, "");
    EXPECT_NE(first, second);
    EXPECT_EQ(second->name, "a");
    EXPECT_EQ(second->mask, 0x80U);
    EXPECT_EQ(logger.getComponentByName("a"), first);
    logger.setComponentLevel("a", 0x1);
    logger.updateComponentLevel("a", "11");
    EXPECT_EQ(first->mask, 0x3U);
    EXPECT_EQ(second->mask, 0x80U);
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(ComponentRegistry, KeepsAppendingDescriptionsForAKnownNameWithoutUsingTheLevel) {
    sorrel_component* const component = logger.createComponent("net", SR_ERR, "1=B");
    EXPECT_EQ(logger.createComponent("net", SR_DEBUG, "4=A,1=B"), component);
    EXPECT_EQ(component->mask, 0x8U);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(1, "B"), Pair(4, "A"), Pair(1, "B")));
}

TEST_F(ComponentRegistry, DescriptionsWithoutAnAcceptableEntryStillFindTheKnownComponent) {
    sorrel_component* const component = logger.createComponent("net", SR_ERR, "1=B");
    EXPECT_EQ(logger.createComponent("net", SR_DEBUG, "x"), component);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(1, "B")));
}

TEST_F(ComponentRegistry, AnUpdateCreatesAnUnknownComponent) {
    EXPECT_EQ(logger.updateComponentLevel("b", "101"), 0);
    const sorrel_component* const component = logger.getComponentByName("b");
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(component->name, "b");
    EXPECT_EQ(component->mask, 5U);
    EXPECT_THAT(component->levelDescriptions, IsEmpty());
}

TEST_F(ComponentRegistry, AnUpdateChangesTheMaskAndLeavesTheDescriptions) {
    const sorrel_component* const component = logger.createComponent("b", SR_ERR, "8=ERR");
    EXPECT_EQ(logger.updateComponentLevel("b", "101"), 0);
    EXPECT_EQ(logger.getComponentByName("b"), component);
    EXPECT_EQ(component->mask, 5U);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(8, "ERR")));
}

TEST_F(ComponentRegistry, EveryCharacterBut1IsAClearDigit) {
    EXPECT_EQ(maskOf("0x1f"), 2U);
    EXPECT_EQ(maskOf("9 1"), 1U);
    EXPECT_EQ(maskOf("1-"), 2U);
    EXPECT_EQ(maskOf("\xff\x31"), 1U);
}

TEST_F(ComponentRegistry, AnEmptyTextGivesAnEmptyMask) {
    EXPECT_EQ(maskOf("1"), 1U);
    EXPECT_EQ(maskOf(""), 0U);
}

TEST_F(ComponentRegistry, TheLast32DigitsCount) {
    EXPECT_EQ(maskOf(std::string(32, '1')), 0xffffffffU);
    EXPECT_EQ(maskOf("1" + std::string(31, '0')), 0x80000000U);
    EXPECT_EQ(maskOf("1" + std::string(32, '0')), 0U);
    EXPECT_EQ(maskOf(std::string(100, '1') + std::string(31, '0') + "1"), 0x00000001U);
}

TEST_F(ComponentRegistry, AMaskIsSetByName) {
    const sorrel_component* const component = logger.createComponent("net", SR_ERR, "8=ERR");
    logger.setComponentLevel("net", 0xcafeU);
    EXPECT_EQ(component->mask, 0xcafeU);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(8, "ERR")));
}

TEST_F(ComponentRegistry, SettingTheMaskOfAnUnknownNameDoesNothing) {
    logger.setComponentLevel("net", 0xcafeU);
    EXPECT_EQ(logger.getComponentByName("net"), nullptr);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ComponentRegistry, NamesAreAppendedInByteWiseOrder) {
    for (const char* const name : {"net", "a", "B", "\xc3\xa4", "a b", "aa", ""}) {
        logger.createComponent(name, SR_ERR, "");
    }
    std::vector<std::string> all = {"z", "already there"};
    logger.getComponentNames(all);
    EXPECT_THAT(all, ElementsAre("z", "already there", "", "B", "a", "a b", "aa", "net", "\xc3\xa4"));
}

TEST_F(ComponentRegistry, DescriptionsAreAppendedAsCopies) {
    logger.createComponent("net", SR_ERR, "16=WARN,8=ERR");
    Pairs pairs = {{1, "already there"}};
    logger.getLevelDescriptions("net", pairs);
    EXPECT_THAT(pairs, ElementsAre(Pair(1, "already there"), Pair(16, "WARN"), Pair(8, "ERR")));
    pairs[1].second = "changed";
    EXPECT_EQ(logger.getComponentByName("net")->levelDescriptions[0].second, "WARN");
}

TEST_F(ComponentRegistry, TheDescriptionsOfAnUnknownNameLeaveTheVectorAsItWas) {
    Pairs pairs = {{1, "already there"}};
    logger.getLevelDescriptions("net", pairs);
    EXPECT_THAT(pairs, ElementsAre(Pair(1, "already there")));
}

TEST_F(ComponentRegistry, ComponentsOutliveTheirLogger) {
    sorrel_component* component = nullptr;
    {
        CSorrel shortLived(false);
        component = shortLived.createComponent("net", SR_ERR, "8=ERR");
    }
    EXPECT_EQ(component->name, "net");
    EXPECT_EQ(component->mask, 0x8U);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(8, "ERR")));
}

TEST_F(ComponentRegistry, TheFallbackComponentLetsEverythingPassAndIsNotRegistered) {
    EXPECT_EQ(CSorrel::ms_OOMFallbackComp.name, "OOM-Ohno!");
    EXPECT_EQ(CSorrel::ms_OOMFallbackComp.mask, 0xffffffffU);
    EXPECT_THAT(CSorrel::ms_OOMFallbackComp.levelDescriptions, IsEmpty());
    EXPECT_EQ(logger.getComponentByName("OOM-Ohno!"), nullptr);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ComponentRegistry, AThreadMayTakeTheLockAgainAndGivesItBackAsOften) {
    logger.lockComponents();
    logger.lockComponents();
    const sorrel_component* const component = logger.createComponent("net", SR_ERR, "");
    logger.unlockComponents();
    ObservedThread other([this] { logger.setComponentLevel("net", 1); });
    EXPECT_TRUE(other.waitUntilBlocked()) << "still taken once";
    logger.unlockComponents();
    other.join();
    EXPECT_EQ(component->mask, 1U);
}

TEST_F(ComponentRegistry, EveryChangeAndEveryListWaitsForTheLock) {
    logger.createComponent("net", SR_ERR, "8=ERR");
    std::vector<std::string> all;
    Pairs pairs;
    EXPECT_TRUE(waitsForTheLock([this] { logger.createComponent("a", SR_ERR, ""); }));
    EXPECT_TRUE(waitsForTheLock([this] { logger.createComponent("net", SR_ERR, "1=B"); }));
    EXPECT_TRUE(waitsForTheLock([this] { logger.updateComponentLevel("net", "1"); }));
    EXPECT_TRUE(waitsForTheLock([this] { logger.updateComponentLevel("b", "1"); }));
    EXPECT_TRUE(waitsForTheLock([this] { logger.setComponentLevel("net", 1); }));
    EXPECT_TRUE(waitsForTheLock([this, &all] { logger.getComponentNames(all); }));
    EXPECT_TRUE(waitsForTheLock([this, &pairs] { logger.getLevelDescriptions("net", pairs); }));
    EXPECT_THAT(all, ElementsAre("a", "b", "net"));
    EXPECT_THAT(pairs, ElementsAre(Pair(8, "ERR"), Pair(1, "B")));
}

TEST_F(ComponentRegistry, LookingANameUpTakesNoLock) {
    const sorrel_component* const component = logger.createComponent("net", SR_ERR, "");
    logger.lockComponents();
    const sorrel_component* found = nullptr;
    ObservedThread([this, &found] { found = logger.getComponentByName("net"); }).join();
    logger.unlockComponents();
    EXPECT_EQ(found, component);
}

TEST_F(ComponentRegistry, ThreadsThatCreateTheSameNamesGetTheSameComponents) {
    constexpr int kThreads = 4;
    constexpr int kNames = 200;
    std::vector<std::vector<sorrel_component*>> created(kThreads);
    {
        std::vector<std::unique_ptr<ObservedThread>> threads;
        for (auto& mine : created) {
            threads.push_back(std::make_unique<ObservedThread>([this, &mine] {
                for (int i = 0; i < kNames; ++i) {
                    mine.push_back(logger.createComponent("c" + std::to_string(i), SR_ERR, "8=ERR"));
                }
            }));
        }
    }
    for (const auto& mine : created) {
        EXPECT_EQ(mine, created[0]);
    }
    EXPECT_EQ(names().size(), static_cast<std::size_t>(kNames));
    EXPECT_EQ(created[0][0]->levelDescriptions.size(), static_cast<std::size_t>(kThreads));
}

TEST_F(ComponentRegistryDiagnostics, ACreationByAnUpdateIsReported) {
    logger.updateComponentLevel("net", "1101");
    const std::vector<SyslogRecord> records = diagnostics().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "Creating new component net (level=0xd)");
    EXPECT_EQ(records[0].priority, 7);
}

TEST_F(ComponentRegistryDiagnostics, KeepsTheReportOfAnUpdateWithoutItsClosingParenthesis) {
    logger.createComponent("net", SR_ERR, "");
    logger.updateComponentLevel("net", "11111111");
    const std::vector<SyslogRecord> records = diagnostics().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "Updating level for existing component net (old level: 0x8, new level: 0xff");
    EXPECT_EQ(records[0].priority, 7);
}

TEST_F(ComponentRegistryDiagnostics, CreatingAndSettingAMaskReportNothing) {
    logger.createComponent("net", SR_ERR, "8=ERR");
    logger.createComponent("net", SR_ERR, "16=WARN");
    logger.setComponentLevel("net", 1);
    logger.setComponentLevel("unknown", 1);
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}
