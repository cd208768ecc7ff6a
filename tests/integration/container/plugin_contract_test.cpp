// What a target library may lack or do wrong, and what the container makes of it.
#include "container_fixture.hpp"
#include "plugin_journal.hpp"
#include "plugin_path.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PluginContract : public ContainerFixture {
protected:
    // Configures one library, which cannot be used, and expects the message with its path to say so.
    void expectRejected(const std::string& name, const std::string& message) {
        configure(targetLine(name));
        const OpenContainer container(directory(), true);
        EXPECT_THAT(container.targets, IsEmpty());
        EXPECT_EQ(diagnostics().count("logtarget-container: " + message + " lib \"" + pluginPath(name) + "\""), 1);
        EXPECT_TRUE(diagnostics().has("closing shared library \"" + pluginPath(name) + "\""));
        EXPECT_FALSE(isLibraryOpen(pluginPath(name)));
    }
};

} // namespace

TEST_F(PluginContract, ATargetIsCreatedAndReleasedThroughItsFactory) {
    configure(targetLine("recording"));
    {
        const OpenContainer container(directory(), true);
        EXPECT_EQ(container.targets.size(), 1U);
        EXPECT_THAT(journal::lines(),
                    ElementsAre("recording init null", "recording factory", "recording create LogTarget",
                                "recording getName", "recording isSyslog"));
        EXPECT_TRUE(diagnostics().has("will load target recording from lib " + pluginPath("recording")));
        journal::clear();
    }
    EXPECT_THAT(journal::lines(), ElementsAre("recording factory", "recording destroy", "recording done"));
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
}

TEST_F(PluginContract, ALibraryWithoutHooksIsLoadedAndUnloaded) {
    const std::string path = pluginPath("without_hooks");
    configure(targetLine("without_hooks"));
    {
        const OpenContainer container(directory(), true);
        EXPECT_EQ(container.targets.size(), 1U);
    }
    EXPECT_THAT(journal::lines(),
                ElementsAre("without_hooks factory", "without_hooks create LogTarget", "without_hooks getName",
                            "without_hooks isSyslog", "without_hooks factory", "without_hooks destroy"));
    EXPECT_FALSE(diagnostics().has("calling init function for shared library \"" + path + "\""));
    EXPECT_FALSE(diagnostics().has("Calling done function for shared library \"" + path + "\""));
    EXPECT_FALSE(isLibraryOpen(path));
}

TEST_F(PluginContract, ALibraryWithoutAFactoryIsRejectedAndClosed) {
    expectRejected("without_factory", "Unable to retrieve the classfactory from");
    EXPECT_THAT(journal::lines(), ElementsAre("without_factory init null", "without_factory done"));
    EXPECT_TRUE(diagnostics().has("Symbol \"getClassFactory\" not found in shared library \"" +
                                  pluginPath("without_factory") + "\""));
}

TEST_F(PluginContract, ANullFactoryIsRejectedAndItsLibraryClosed) {
    expectRejected("null_factory", "Unable to retrieve the classfactory from");
    EXPECT_THAT(journal::lines(), ElementsAre("null_factory init null", "null_factory factory", "null_factory done"));
}

TEST_F(PluginContract, AFactoryThatMakesNoObjectIsRejectedAndItsLibraryClosed) {
    expectRejected("null_object", "Unable to create LogTarget from");
    EXPECT_THAT(journal::lines(), ElementsAre("null_object init null", "null_object factory",
                                              "null_object create LogTarget", "null_object done"));
}

TEST_F(PluginContract, AnObjectOfAnotherClassIsRejectedAndItsLibraryClosed) {
    expectRejected("wrong_class", "Unable to create LogTarget from");
}

TEST_F(PluginContract, KeepsAnObjectThatFailedTheCastFromTheFactory) {
    expectRejected("wrong_class", "Unable to create LogTarget from");
    EXPECT_THAT(journal::ofKind("destroy"), IsEmpty());
    EXPECT_THAT(journal::lines(), ElementsAre("wrong_class init null", "wrong_class factory",
                                              "wrong_class create LogTarget", "wrong_class done"));
}

TEST_F(PluginContract, ARejectedLibraryLeavesTheOthersAlone) {
    configure(targetLine("wrong_class") + targetLine("recording"));
    const OpenContainer container(directory(), true);
    EXPECT_EQ(container.targets.size(), 1U);
    EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
}

TEST_F(PluginContract, TheSamePathTwiceYieldsOneTarget) {
    const std::string path = pluginPath("recording");
    configure(targetLine("recording", "tag=first") + targetLine("recording", "tag=second"));
    const OpenContainer container(directory(), true);
    EXPECT_EQ(container.targets.size(), 1U);
    ASSERT_EQ(journal::ofKind("create").size(), 1U);
    EXPECT_EQ(journal::ofKind("create")[0].library, "recording:first");
    EXPECT_EQ(journal::ofKind("init").size(), 1U);
    EXPECT_EQ(diagnostics().count("logtarget-container: library \"" + path + "\" already loaded"), 1);
}

TEST_F(PluginContract, ATargetGetsTheParametersOfItsLineAndTheApplicationName) {
    configure(targetLine("recording", " file = /var/log/my log, tag=x"));
    const OpenContainer container(directory(), true);
    ASSERT_EQ(journal::ofKind("create").size(), 1U);
    const std::map<std::string, std::string> expected = {
        {"application-name", ""}, {"file", "/var/log/my log"}, {"tag", "x"}};
    EXPECT_EQ(journal::ofKind("create")[0].params, expected);
}

TEST_F(PluginContract, AMessageReachesTheTargetsUnchangedAndInTheOrderOfTheirPaths) {
    configure(targetLine("recording_b") + targetLine("recording"));
    OpenContainer container(directory(), true);
    sorrel_level level = {6, 0x40};
    container->log(7, -1, 1LL << 40, 999999, &level, "thread", "component", "function", "text");
    const std::vector<PluginEvent> events = journal::ofKind("log");
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].library, "recording");
    EXPECT_EQ(events[1].library, "recording_b");
    for (const PluginEvent& event : events) {
        EXPECT_EQ(event.processId, 7);
        EXPECT_EQ(event.depth, -1);
        EXPECT_EQ(event.seconds, 1LL << 40);
        EXPECT_EQ(event.microseconds, 999999);
        EXPECT_EQ(event.level, &level);
        EXPECT_EQ(event.threadName, "thread");
        EXPECT_EQ(event.componentName, "component");
        EXPECT_EQ(event.functionName, "function");
        EXPECT_EQ(event.text, "text");
    }
}
