// The functions of namespace sorrel.
#include "blocked_thread.hpp"
#include "logger_fixture.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Pairs = std::vector<std::pair<unsigned int, std::string>>;

class FreeFunctions : public LoggerFixture {
protected:
    FreeFunctions() { configure(target("recording") + "component=configured,101\n"); }

    // Runs a function in another thread while this one holds the components lock; tells whether it had to wait.
    static bool waitsForTheLock(const std::function<void()>& function) {
        CSorrel::getInstance()->lockComponents();
        const ObservedThread thread(function);
        const bool waits = thread.waitUntilBlocked();
        CSorrel::getInstance()->unlockComponents();
        return waits;
    }
};

} // namespace

TEST_F(FreeFunctions, AComponentIsFoundByItsName) {
    const sorrel_component* const net = sorrel_create_component("net", SR_ERR, "");
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("net"), net);
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("configured")->mask, 5U);
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("unknown"), nullptr);
}

TEST_F(FreeFunctions, FindingAComponentTakesNoLock) {
    const sorrel_component* const net = sorrel_create_component("net", SR_ERR, "");
    const sorrel_component* found = nullptr;
    CSorrel::getInstance()->lockComponents();
    ObservedThread([&found] { found = sorrel::sorrel_get_component_by_name("net"); }).join();
    CSorrel::getInstance()->unlockComponents();
    EXPECT_EQ(found, net);
}

TEST_F(FreeFunctions, TheNameOfAComponentIsACopyAndThatOfNullIsEmpty) {
    const sorrel_component* const net = sorrel_create_component("net", SR_ERR, "");
    EXPECT_EQ(sorrel::sorrel_get_name_by_component(net), "net");
    EXPECT_EQ(sorrel::sorrel_get_name_by_component(nullptr), "");
}

TEST_F(FreeFunctions, KeepsTheQuestionForTheNameOfAComponentFreeOfAnyLogger) {
    EXPECT_EQ(sorrel::sorrel_get_name_by_component(&CSorrel::ms_OOMFallbackComp), "OOM-Ohno!");
    EXPECT_THAT(journal::events(), IsEmpty());
    EXPECT_TRUE(hasMoreThreads(0));
}

TEST_F(FreeFunctions, TheValuesOfALevelNeedNoLogger) {
    EXPECT_EQ(sorrel::sorrel_level_to_mask(SR_ERR), 0x8U);
    EXPECT_EQ(sorrel::sorrel_level_to_numeric(SR_ERR), 3);
    EXPECT_EQ(sorrel::sorrel_level_to_syslog_prio(SR_ALL), 7);
    EXPECT_THAT(journal::events(), IsEmpty());
    EXPECT_TRUE(hasMoreThreads(0));
}

TEST_F(FreeFunctions, NamesAreAppendedInAscendingOrder) {
    sorrel_create_component("net", SR_ERR, "");
    sorrel_create_component("Audio", SR_ERR, "");
    std::vector<std::string> names = {"already there"};
    sorrel::sorrel_get_component_names(names);
    EXPECT_THAT(names, ElementsAre("already there", "Audio", "configured", "net"));
}

TEST_F(FreeFunctions, DescriptionsAreAppendedAndThoseOfAnUnknownNameAreNone) {
    sorrel_create_component("net", SR_ERR, "16=WARN,8=ERR");
    Pairs descriptions = {{1, "already there"}};
    sorrel::sorrel_get_level_descriptions("unknown", descriptions);
    EXPECT_THAT(descriptions, ElementsAre(Pair(1, "already there")));
    sorrel::sorrel_get_level_descriptions("net", descriptions);
    EXPECT_THAT(descriptions, ElementsAre(Pair(1, "already there"), Pair(16, "WARN"), Pair(8, "ERR")));
}

TEST_F(FreeFunctions, TheLevelOfAComponentIsItsCurrentMaskAndThatOfAnUnknownNameIs0) {
    sorrel_create_component("net", SR_ERR, "");
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0x8U);
    EXPECT_EQ(sorrel::sorrel_get_component_level("configured"), 5U);
    EXPECT_EQ(sorrel::sorrel_get_component_level("unknown"), 0U);
    sorrel::sorrel_set_component_level("net", 0xffffffffU);
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0xffffffffU);
}

TEST_F(FreeFunctions, ALevelThatIsSetCountsForTheNextMessage) {
    sorrel_component* const net = sorrel_create_component("net", SR_ERR, "");
    _sorrel(net, SR_DEBUG, "before");
    sorrel::sorrel_set_component_level("net", SR_DEBUG->mask);
    _sorrel(net, SR_DEBUG, "after");
    _sorrel(net, SR_ERR, "no longer");
    EXPECT_THAT(journal::texts(), ElementsAre("after"));
}

TEST_F(FreeFunctions, TargetsAreNotToldOfALevelThatIsSet) {
    sorrel_create_component("net", SR_ERR, "");
    journal::clear();
    sorrel::sorrel_set_component_level("net", 1);
    EXPECT_THAT(journal::events(), IsEmpty());
}

TEST_F(FreeFunctions, SettingTheLevelOfAnUnknownNameChangesNothing) {
    sorrel_create_component("net", SR_ERR, "");
    sorrel::sorrel_set_component_level("unknown", 1);
    EXPECT_THAT(componentNames(), ElementsAre("configured", "net"));
    EXPECT_EQ(sorrel::sorrel_get_component_level("unknown"), 0U);
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0x8U);
}

TEST_F(FreeFunctions, AllThatReadOrChangeComponentsWaitForTheLock) {
    sorrel_create_component("net", SR_ERR, "8=ERR");
    unsigned int level = 0;
    Pairs descriptions;
    EXPECT_TRUE(waitsForTheLock([] { sorrel::sorrel_set_component_level("net", 1); }));
    EXPECT_TRUE(waitsForTheLock([&level] { level = sorrel::sorrel_get_component_level("net"); }));
    EXPECT_TRUE(waitsForTheLock([] { componentNames(); }));
    EXPECT_TRUE(waitsForTheLock([&] { sorrel::sorrel_get_level_descriptions("net", descriptions); }));
    EXPECT_EQ(level, 1U);
    EXPECT_THAT(descriptions, ElementsAre(Pair(8, "ERR")));
}

TEST_F(FreeFunctions, ReadingALevelGivesTheLockBack) {
    sorrel_create_component("net", SR_ERR, "");
    sorrel::sorrel_get_component_level("net");
    sorrel::sorrel_get_component_level("unknown");
    ObservedThread([] { sorrel::sorrel_set_component_level("net", 1); }).join();
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 1U);
}

TEST_F(FreeFunctions, LevelsMayBeSetWhileOtherThreadsLogAndRead) {
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "");
    const ObservedThread setter([] {
        for (unsigned int i = 0; i < 1000; ++i) {
            sorrel::sorrel_set_component_level("net", i % 2 == 0 ? 0 : SR_INFO->mask);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        _sorrel(net, SR_INFO, "hello");
        const unsigned int level = sorrel::sorrel_get_component_level("net");
        EXPECT_TRUE(level == 0 || level == SR_INFO->mask);
    }
}
