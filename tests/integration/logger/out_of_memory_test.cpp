// Memory that is out, as applications and targets see it.
#include "failing_allocations.hpp"

#include "logger_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>
#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class OutOfMemory : public LoggerFixture {
protected:
    OutOfMemory() { configure(target("recording") + "component=net,101\n"); }

    void SetUp() override {
        if (!replacedNew::kActive) {
            GTEST_SKIP() << "the sanitizer keeps operator new for itself";
        }
    }

    // A component whose record, the first thing that a creation allocates, cannot be had.
    static sorrel_component* createWithoutMemory(const char* name) {
        CSorrel::getInstance();
        journal::clear();
        const FailingAllocation record(0);
        return sorrel_create_component(name, SR_ERR, "");
    }

    // Only a target that is loaded is told of components.
    static bool wasLoaded() { return !journal::ofKind("component").empty(); }
};

} // namespace

TEST_F(OutOfMemory, AComponentThatCannotBeAllocatedIsTheFallback) {
    const sorrel_component* const component = createWithoutMemory("new");
    EXPECT_EQ(component, &CSorrel::ms_OOMFallbackComp);
    EXPECT_EQ(component->name, "OOM-Ohno!");
    EXPECT_EQ(component->mask, 0xffffffffU);
    EXPECT_THAT(componentNames(), ElementsAre("net"));
}

TEST_F(OutOfMemory, TargetsAreNotToldOfTheFallback) {
    createWithoutMemory("new");
    EXPECT_THAT(journal::events(), IsEmpty());
}

TEST_F(OutOfMemory, MessagesOfTheFallbackPassAtEveryLevel) {
    sorrel_component* const component = createWithoutMemory("new");
    _sorrel(component, SR_EMERG, "one");
    _sorrel(component, SR_ENTERLEAVE, "two");
    EXPECT_THAT(journal::texts(), ElementsAre("one", "two"));
    EXPECT_EQ(messagesOf("recording").at(0).componentName, "OOM-Ohno!");
}

TEST_F(OutOfMemory, AfterAFailureTheComponentCanBeCreated) {
    createWithoutMemory("new");
    const sorrel_component* const component = sorrel_create_component("new", SR_ERR, "");
    EXPECT_EQ(component->name, "new");
    EXPECT_THAT(componentNames(), ElementsAre("net", "new"));
}

TEST_F(OutOfMemory, AMessageWhoseTextsCannotBeHadIsThrownAndReachesNoTarget) {
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    const std::string longText(100, 'x');
    sorrel_enter_function(nullptr, longText.c_str());
    const auto logWithout = [&](long allocation) {
        const FailingAllocation failing(allocation);
        _sorrel(net, SR_INFO, "%s", longText.c_str());
    };
    EXPECT_THROW(logWithout(0), std::bad_alloc) << "the name of the function";
    EXPECT_THROW(logWithout(1), std::bad_alloc) << "the message";
    EXPECT_THAT(journal::texts(), IsEmpty());
    _sorrel(net, SR_INFO, "%s", longText.c_str());
    EXPECT_THAT(journal::texts(), ElementsAre(longText));
}

TEST_F(OutOfMemory, AFunctionWhoseNameCannotBeCopiedIsNotEntered) {
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    const std::string longName(100, 'f');
    const CSorrel::thread_data_t& record = CSorrel::thread_data;
    const auto enterWithout = [&](long allocation) {
        const FailingAllocation failing(allocation);
        sorrel_enter_function(net, longName.c_str());
    };
    EXPECT_THROW(enterWithout(0), std::bad_alloc);
    EXPECT_THAT(record.functionStack, IsEmpty());
    EXPECT_EQ(record.depth, 0);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(OutOfMemory, ANameThatCannotBeCopiedIsToldTheTargetsAfterTheNextReRead) {
    const std::string longName(100, 'n');
    CSorrel::getInstance();
    journal::onEvent("isSyslog", [](const PluginEvent&) { replacedNew::failNext = true; }); // the last of the re-read
    EXPECT_THROW(sorrel_set_applicationname(longName.c_str()), std::bad_alloc);
    journal::onEvent("isSyslog", nullptr);
    EXPECT_THAT(journal::ofKind("appname"), IsEmpty());
    configure(target("recording"));
    EXPECT_TRUE(journal::waitFor([&](const PluginEvent& event) { return event.text == longName; }));
}

// Each allocation of building a logger fails once, those of its target included.
TEST_F(OutOfMemory, ALoggerThatCannotBeBuiltLeavesNeitherDescriptorsNorThreadsNorTargets) {
    const auto descriptors = openDescriptors();
    int thrown = 0;
    int thrownWithATarget = 0;
    bool failed = true;
    for (long before = 0; failed; ++before) {
        journal::clear();
        std::optional<FailingAllocation> allocation;
        try {
            allocation.emplace(before);
            const CSorrel logger(true);
            failed = FailingAllocation::hasFailed();
            allocation.reset(); // none fails while the logger is destroyed
        } catch (const std::bad_alloc&) {
            ++thrown;
            EXPECT_EQ(openDescriptors(), descriptors) << before;
            EXPECT_TRUE(hasMoreThreads(0)) << before;
            if (wasLoaded()) {
                ++thrownWithATarget;
                EXPECT_EQ(journal::ofKind("destroy").size(), 1U) << before;
            }
        }
    }
    EXPECT_GT(thrown, thrownWithATarget);
    EXPECT_GT(thrownWithATarget, 1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(hasMoreThreads(0));
}
