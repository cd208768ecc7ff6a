// What a re-read does to the targets that are loaded already.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class ConfigSweep : public ContainerFixture {
protected:
    ConfigSweep() : m_container(directory(), false, nullptr) {}

    OpenContainer& container() { return m_container; }

    // Rewrites the file, re-reads it and returns what the plug-ins saw of it.
    std::vector<std::string> reread(const std::string& text) {
        configure(text);
        journal::clear();
        diagnostics().clear();
        m_container->onCfgUpdate();
        return journal::lines();
    }

    static std::string unloading(const std::string& plugin) {
        return "logtarget-container: unloading log-target " + plugin + " (and its library \"" + pluginPath(plugin) +
               "\")";
    }

private:
    OpenContainer m_container;
};

} // namespace

TEST_F(ConfigSweep, ARemovedLineUnloadsItsTargetWithAMessage) {
    reread(targetLine("recording"));
    EXPECT_THAT(reread(""),
                ElementsAre("recording getName", "recording factory", "recording destroy", "recording done"));
    EXPECT_THAT(container().targets, IsEmpty());
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
    const std::string quoted = "\"" + pluginPath("recording") + "\"";
    std::vector<std::string> messages = diagnostics().texts();
    messages.erase(messages.begin()); // that the file is read
    EXPECT_THAT(messages,
                ElementsAre(unloading("recording"), "Retrieving classfactory from shared library " + quoted,
                            "Calling done function for shared library " + quoted, "closing shared library " + quoted));
    EXPECT_EQ(diagnostics().records()[1].priority, 6);
}

TEST_F(ConfigSweep, AnUnchangedFileLoadsAndUnloadsNothing) {
    const std::string text = targetLine("recording") + targetLine("recording_b");
    reread(text);
    const auto* const target = container().targets.at(pluginPath("recording")).target;
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(reread(text), ElementsAre("recording isSyslog", "recording_b isSyslog"));
    }
    EXPECT_EQ(container().targets.at(pluginPath("recording")).target, target);
}

TEST_F(ConfigSweep, SeveralRemovedTargetsAreUnloadedInTheOrderOfTheirPathsAmongThoseThatStay) {
    reread(targetLine("without_hooks") + targetLine("recording_b") + targetLine("recording") +
           targetLine("claims_syslog"));
    EXPECT_THAT(reread(targetLine("recording_b")),
                ElementsAre("claims_syslog getName", "claims_syslog factory", "claims_syslog destroy",
                            "claims_syslog done", "recording getName", "recording factory", "recording destroy",
                            "recording done", "recording_b isSyslog", "without_hooks getName", "without_hooks factory",
                            "without_hooks destroy"));
    EXPECT_TRUE(diagnostics().has(unloading("claims_syslog")));
    EXPECT_TRUE(diagnostics().has(unloading("recording")));
    EXPECT_FALSE(diagnostics().has(unloading("recording_b")));
    EXPECT_TRUE(diagnostics().has(unloading("without_hooks")));
}

TEST_F(ConfigSweep, ANewTargetIsLoadedBeforeAnOldOneIsUnloaded) {
    reread(targetLine("recording"));
    EXPECT_THAT(reread(targetLine("recording_b")),
                ElementsAre("recording_b init null", "recording_b factory", "recording_b create LogTarget",
                            "recording_b getName", "recording getName", "recording factory", "recording destroy",
                            "recording done", "recording_b isSyslog"));
}

TEST_F(ConfigSweep, ChangedParametersOfALoadedTargetHaveNoEffectUntilItWasRemovedForOneReRead) {
    reread(targetLine("recording", "level=3"));
    EXPECT_THAT(reread(targetLine("recording", "level=5")), ElementsAre("recording isSyslog"));
    reread("");
    reread(targetLine("recording", "level=5"));
    ASSERT_THAT(journal::ofKind("create"), SizeIs(1));
    EXPECT_EQ(journal::ofKind("create")[0].params.at("level"), "5");
}

TEST_F(ConfigSweep, TheSyslogFlagIsComputedAnewByEachReRead) {
    reread(targetLine("claims_syslog") + targetLine("recording"));
    EXPECT_TRUE(container()->hasSyslogTarget()) << "also when a later target says no";
    reread(targetLine("claims_syslog"));
    EXPECT_TRUE(container()->hasSyslogTarget());
    reread(targetLine("recording"));
    EXPECT_FALSE(container()->hasSyslogTarget());
}

TEST_F(ConfigSweep, TheSyslogFlagIsDownWhileTheFileIsReadAndAfterAFailedReReadUntilTheNextGoodOne) {
    reread(targetLine("claims_syslog"));
    bool during = true;
    journal::onEvent("init", [&](const PluginEvent&) { during = container()->hasSyslogTarget(); });
    reread(targetLine("claims_syslog") + targetLine("recording"));
    journal::onEvent("init", nullptr);
    EXPECT_FALSE(during);
    EXPECT_TRUE(container()->hasSyslogTarget());
    reread(targetLine("claims_syslog") + kTooLongLine);
    EXPECT_FALSE(container()->hasSyslogTarget());
    container().send("hello");
    EXPECT_FALSE(container()->hasSyslogTarget());
    reread(targetLine("claims_syslog"));
    EXPECT_TRUE(container()->hasSyslogTarget());
}

TEST_F(ConfigSweep, ATargetIsAskedForSyslogAtEachReReadThatItOutlives) {
    EXPECT_EQ(reread(targetLine("recording")).back(), "recording isSyslog");
    EXPECT_EQ(reread(targetLine("recording")).back(), "recording isSyslog");
    reread("");
    EXPECT_THAT(journal::ofKind("isSyslog"), IsEmpty());
}

TEST_F(ConfigSweep, TheSeenFlagsAreClearAfterAGoodReRead) {
    reread(targetLine("recording") + targetLine("recording_b"));
    for (const auto& entry : container().targets) {
        EXPECT_FALSE(entry.second.seen) << entry.first;
    }
}

TEST_F(ConfigSweep, KeepsTheSeenFlagsThatABrokenFileHasSet) {
    reread(targetLine("recording") + targetLine("recording_b"));
    reread(targetLine("recording") + kTooLongLine);
    EXPECT_TRUE(container().targets.at(pluginPath("recording")).seen);
    EXPECT_FALSE(container().targets.at(pluginPath("recording_b")).seen);
}

TEST_F(ConfigSweep, KeepsATargetThatABrokenFileNamedForOneReReadMore) {
    reread(targetLine("recording"));
    reread(targetLine("recording") + kTooLongLine);
    EXPECT_THAT(reread(""), ElementsAre("recording isSyslog"));
    EXPECT_THAT(container().targets, SizeIs(1));
    reread("");
    EXPECT_THAT(container().targets, IsEmpty());
}

TEST_F(ConfigSweep, KeepsATargetThatABrokenFileLoadedForOneReReadMore) {
    reread(targetLine("recording") + kTooLongLine);
    EXPECT_THAT(reread(""), ElementsAre("recording isSyslog"));
    reread("");
    EXPECT_THAT(container().targets, IsEmpty());
}
