// What happens in the logger when memory is out: every allocation of an operation fails once.
#include "failing_allocations.hpp"

#include "core/level_descriptions.hpp"

#include <sorrel/level.h>
#include <sorrel/logger.hpp>

#include <functional>
#include <gmock/gmock.h>
#include <set>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

const std::string kLongName(100, 'n'); // allocates
const std::string kLongDescriptions = "1=" + std::string(100, 'a') + ",2=" + std::string(100, 'b');

bool throwsBadAlloc(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::bad_alloc&) {
        return true;
    }
    return false;
}

class OutOfMemory : public testing::Test {
protected:
    void SetUp() override {
        if (!replacedNew::kActive) {
            GTEST_SKIP() << "the sanitizer keeps operator new for itself";
        }
    }

    std::vector<std::string> names() {
        std::vector<std::string> all;
        logger.getComponentNames(all);
        return all;
    }

    // Every lock has been given back: another thread gets them.
    void expectUnlocked() {
        std::thread([this] { logger.createComponent("other", nullptr, ""); }).join();
        EXPECT_NE(logger.getComponentByName("other"), nullptr);
    }

    CSorrel logger{false};
};

// Which allocation of a creation under a new name is that of the record: the first, since no lock allocates.
constexpr long kBeforeTheRecord = 0;

} // namespace

TEST_F(OutOfMemory, ALevelThatCannotBeStoredIsNotCreatedAndTheStoreStaysUsable) {
    EXPECT_TRUE(throwsBadAlloc([] {
        const FailingAllocation first(0);
        sorrel_level_create(3);
    }));
    EXPECT_EQ(sorrel_level_create(3)->mask, 0x8U);
    const sorrel_level* level = nullptr;
    std::thread([&level] { level = sorrel_level_create(4); }).join();
    EXPECT_EQ(level->mask, 0x10U);
}

TEST_F(OutOfMemory, DescriptionsThatWereAppendedBeforeTheFailureStay) {
    std::set<std::size_t> counts;
    bool failed = true;
    for (long before = 0; failed; ++before) {
        sorrel_component component{"c", 0, {}};
        failed = throwsBadAlloc([&] {
            const FailingAllocation allocation(before);
            sorrel::parseLevelDescriptions(component, kLongDescriptions);
        });
        counts.insert(component.levelDescriptions.size());
        if (!component.levelDescriptions.empty()) {
            EXPECT_THAT(component.levelDescriptions[0], Pair(1, std::string(100, 'a')));
        }
    }
    EXPECT_THAT(counts, ElementsAre(0, 1, 2));
}

TEST_F(OutOfMemory, AComponentThatCannotBeAllocatedIsTheFallback) {
    sorrel_component* component = nullptr;
    {
        const FailingAllocation record(kBeforeTheRecord);
        component = logger.createComponent("net", SR_ERR, "8=ERR");
    }
    EXPECT_EQ(component, &CSorrel::ms_OOMFallbackComp);
    EXPECT_EQ(component->name, "OOM-Ohno!");
    EXPECT_EQ(component->mask, 0xffffffffU);
    EXPECT_THAT(component->levelDescriptions, IsEmpty());
    EXPECT_THAT(names(), IsEmpty());
    expectUnlocked();
}

TEST_F(OutOfMemory, AnUpdateThatCannotCreateItsComponentStillSucceeds) {
    const std::string name = "net";
    const std::string digits = "101";
    int result = -1;
    {
        // Before it come the texts of the creation, which fit into the strings themselves.
        const FailingAllocation record(kBeforeTheRecord);
        result = logger.updateComponentLevel(name, digits);
        EXPECT_TRUE(FailingAllocation::hasFailed());
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(CSorrel::ms_OOMFallbackComp.mask, 0xffffffffU);
    expectUnlocked();
}

TEST_F(OutOfMemory, EveryOtherFailureOfACreationIsThrownAndLeavesNothingBehind) {
    int thrown = 0;
    bool created = false;
    for (long before = kBeforeTheRecord + 1; !created; ++before) {
        const bool threw = throwsBadAlloc([&] {
            const FailingAllocation allocation(before);
            logger.createComponent(kLongName, SR_ERR, kLongDescriptions);
            created = true;
        });
        if (threw) {
            ++thrown;
            ASSERT_THAT(names(), IsEmpty()) << before;
        }
    }
    EXPECT_GE(thrown, 4) << "the name, its copy in the registry, and two descriptions at least";
    EXPECT_THAT(names(), ElementsAre(kLongName));
    EXPECT_EQ(logger.getComponentByName(kLongName)->levelDescriptions.size(), 2U);
    expectUnlocked();
}

TEST_F(OutOfMemory, AFailureWhileDescriptionsAreAddedGivesTheLocksBack) {
    const sorrel_component* const component = logger.createComponent("net", SR_ERR, "1=B");
    EXPECT_TRUE(throwsBadAlloc([&] {
        const FailingAllocation first(0);
        logger.createComponent("net", nullptr, kLongDescriptions);
    }));
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(1, "B")));
    expectUnlocked();
}
