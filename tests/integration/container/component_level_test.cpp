// The `component` lines of the configuration, as the logger applies them.
#include "container_fixture.hpp"

#include <sorrel/component.hpp>
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <gmock/gmock.h>

using sorrel::sorrel_get_component_level;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

// The configured logger of the process, which reads the file of the test.
class ComponentLevel : public ContainerFixture {
protected:
    ComponentLevel() { setenv("SORL_PATH", directory().c_str(), 1); }

    // The mask of "net" once the first read of these lines is done.
    unsigned int maskAfter(const std::string& lines) {
        configure(lines);
        CSorrel::getInstance();
        return sorrel_get_component_level("net");
    }

    // Rewrites the file of the running logger and waits for the last line, which gives another component its mark.
    void rewrite(const std::string& lines) {
        static unsigned int mark = 0;
        const std::string digits(++mark, '1');
        configure(lines + "component=mark," + digits + "\n");
        const unsigned int expected = (1U << mark) - 1U;
        EXPECT_TRUE(waitUntil([&] { return sorrel_get_component_level("mark") == expected; }));
    }
};

} // namespace

TEST_F(ComponentLevel, ALevelIsReadAsBinaryDigits) {
    EXPECT_EQ(maskAfter("component=net,11111111\n"), 0xffU);
}

TEST_F(ComponentLevel, BlanksBetweenTheDigitsDoNotMatter) {
    EXPECT_EQ(maskAfter("component=net,  1 0 1 \n"), 0x5U);
}

TEST_F(ComponentLevel, EveryOtherCharacterIsAClearBit) {
    EXPECT_EQ(maskAfter("component=net,1x-1\n"), 0x9U);
}

TEST_F(ComponentLevel, DecimalAndHexadecimalNumbersAreNotUnderstood) {
    EXPECT_EQ(maskAfter("component=net,1\ncomponent=net,255\n"), 0U);
    EXPECT_TRUE(diagnostics().has("Updating level for existing component net (old level: 0x1, new level: 0x0"));
    rewrite("component=net,11\ncomponent=net,0xff\n");
    EXPECT_EQ(sorrel_get_component_level("net"), 0U);
}

TEST_F(ComponentLevel, ATwoIsAClearBit) {
    EXPECT_EQ(maskAfter("component=net,1\ncomponent=net,2\n"), 0U);
    EXPECT_NE(sorrel::sorrel_get_component_by_name("net"), nullptr);
}

TEST_F(ComponentLevel, KeepsTheLastThirtyTwoOfThirtyThreeDigits) {
    EXPECT_EQ(maskAfter("component=net," + std::string(33, '1') + "\n"), 0xffffffffU);
    rewrite("component=net,1" + std::string(32, '0') + "\n");
    EXPECT_EQ(sorrel_get_component_level("net"), 0U);
}

TEST_F(ComponentLevel, AnEmptyLevelIsAMaskOfZero) {
    EXPECT_EQ(maskAfter("component=net,1\ncomponent=net, ,\n"), 0U);
}

TEST_F(ComponentLevel, AComponentThatDoesNotExistYetIsCreatedWithItsMask) {
    maskAfter("component=net,101\n");
    EXPECT_EQ(diagnostics().count("Creating new component net (level=0x5)"), 1);
    ASSERT_NE(sorrel::sorrel_get_component_by_name("net"), nullptr);
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("net")->mask, 0x5U);
}

TEST_F(ComponentLevel, KeepsTheMessageOfAnExistingComponentWithoutItsClosingParenthesis) {
    EXPECT_EQ(maskAfter("component=net,101\ncomponent=net,1\n"), 0x1U);
    const std::string message = "Updating level for existing component net (old level: 0x5, new level: 0x1";
    EXPECT_EQ(diagnostics().count(message), 1);
    for (const SyslogRecord& record : diagnostics().records()) {
        if (record.text == message) {
            EXPECT_EQ(record.priority, 7);
        }
    }
}

TEST_F(ComponentLevel, OfTwoLinesForOneComponentTheLaterWins) {
    EXPECT_EQ(maskAfter("component=net,1\ncomponent=net,10\n"), 0x2U);
}

TEST_F(ComponentLevel, RemovingALineRestoresNothing) {
    maskAfter("");
    sorrel_component* const net = sorrel_create_component("net", SR_ERR, "");
    rewrite("component=net,11111111\n");
    EXPECT_EQ(sorrel_get_component_level("net"), 0xffU);
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("net"), net);
    rewrite("");
    EXPECT_EQ(sorrel_get_component_level("net"), 0xffU);
}

TEST_F(ComponentLevel, ALineWinsOverWhatTheApplicationHasSetAtEachReRead) {
    maskAfter("component=net,1\n");
    sorrel::sorrel_set_component_level("net", 0xf0);
    rewrite("component=net,1\n");
    EXPECT_EQ(sorrel_get_component_level("net"), 0x1U);
}

TEST_F(ComponentLevel, TargetsAreToldOfEachLine) {
    maskAfter(targetLine("recording") + "component=net,1\ncomponent=net,11\n");
    const std::vector<PluginEvent> told = journal::ofKind("component");
    ASSERT_THAT(told, SizeIs(2));
    EXPECT_EQ(told[0].component, sorrel::sorrel_get_component_by_name("net"));
    EXPECT_EQ(told[1].component, told[0].component);
}

TEST_F(ComponentLevel, ATargetIsToldOnlyOfTheLinesBehindItsOwn) {
    maskAfter("component=net,1\n" + targetLine("recording") + "component=audio,11\n");
    const std::vector<PluginEvent> told = journal::ofKind("component");
    ASSERT_THAT(told, SizeIs(1));
    EXPECT_EQ(told[0].componentName, "audio");
}
