// From the lines of a file to the handlers of their keys, and what a file that cannot be read does.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <filesystem>

using sorrel::CLogTargetContainer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

class ConfigLoading : public ContainerFixture {
protected:
    ConfigLoading() : m_container(directory(), false, &m_sink) {}

    OpenContainer& container() { return m_container; }
    RecordingSink& sink() { return m_sink; }

    // Reads this file and returns the messages between the first, which names the file, and the end.
    std::vector<std::string> messagesOf(const std::string& text) {
        configure(text);
        diagnostics().clear();
        m_container->onCfgUpdate();
        std::vector<std::string> messages = diagnostics().texts();
        EXPECT_EQ(messages.front(), "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"");
        messages.erase(messages.begin());
        return messages;
    }

    std::string givingUp() const { return "unable to read sorrel-config \"" + defaultFile() + "\" - giving up."; }

private:
    RecordingSink m_sink;
    OpenContainer m_container;
};

} // namespace

TEST_F(ConfigLoading, AnUnknownKeyIsReportedAndTheReadingGoesOn) {
    EXPECT_THAT(messagesOf("colour=red\ncomponent=net,1\n"),
                ElementsAre("callback \"colour\"=\"red\"", "ignoring unknown config token \"colour\"",
                            "callback \"component\"=\"net,1\"", "Modifying component \"net\": new level=\"1\""));
    for (const SyslogRecord& record : diagnostics().records()) {
        EXPECT_EQ(record.priority, 7) << record.text;
    }
    EXPECT_THAT(sink().levels(), ElementsAre(Pair("net", "1")));
}

TEST_F(ConfigLoading, KeysAreCaseSensitive) {
    EXPECT_THAT(messagesOf("Target=" + pluginPath("recording") + "\nCOMPONENT=net,1\n"),
                ElementsAre("callback \"Target\"=\"" + pluginPath("recording") + "\"",
                            "ignoring unknown config token \"Target\"", "callback \"COMPONENT\"=\"net,1\"",
                            "ignoring unknown config token \"COMPONENT\""));
    EXPECT_THAT(container().targets, IsEmpty());
    EXPECT_THAT(sink().levels(), IsEmpty());
}

TEST_F(ConfigLoading, KeysAreComparedWhole) {
    messagesOf("targets=" + pluginPath("recording") + "\narget=" + pluginPath("recording") + "\ncomponents=net,1\n");
    EXPECT_THAT(container().targets, IsEmpty());
    EXPECT_THAT(sink().levels(), IsEmpty());
}

TEST_F(ConfigLoading, SpacesAroundKeyAndValueDoNotMatter) {
    messagesOf(" target = " + pluginPath("recording") + "  \n");
    EXPECT_THAT(container().targets, ElementsAre(Pair(pluginPath("recording"), testing::_)));
}

TEST_F(ConfigLoading, TabsAroundKeyAndValueAreReportedAsTheyStandAndThenTrimmed) {
    EXPECT_THAT(messagesOf("\tcomponent\t=\tnet,1\t\n\tshade\t=x\n"),
                ElementsAre("callback \"\tcomponent\t\"=\"\tnet,1\t\"", "Modifying component \"net\": new level=\"1\"",
                            "callback \"\tshade\t\"=\"x\"", "ignoring unknown config token \"shade\""));
}

TEST_F(ConfigLoading, LinesWithoutKeyOrValueNeverArrive) {
    EXPECT_THAT(messagesOf("target=\n=" + pluginPath("recording") + "\ncomponent\n\n# target=x\n"), IsEmpty());
}

TEST_F(ConfigLoading, TheLinesAreHandledInTheirOrder) {
    messagesOf("component=b,1\ncomponent=a,10\ncomponent=b,11\n");
    EXPECT_THAT(sink().levels(), ElementsAre(Pair("b", "1"), Pair("a", "10"), Pair("b", "11")));
}

TEST_F(ConfigLoading, TheCallbackStopsTheReadingWhenAnythingIsNull) {
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread(nullptr, "net,1", &*container()), 1);
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread("component", nullptr, &*container()), 1);
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread("component", "net,1", nullptr), 1);
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    EXPECT_THAT(sink().levels(), IsEmpty());
}

TEST_F(ConfigLoading, TheCallbackHandsTheLineToItsContainerAndNeverStopsTheReading) {
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread(" component ", " net,1 ", &*container()), 0);
    EXPECT_THAT(sink().levels(), ElementsAre(Pair("net", "1")));
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread("component", "malformed", &*container()), 0);
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread("target", "/nowhere/no.so", &*container()), 0);
    EXPECT_EQ(CLogTargetContainer::Callback_Cfread("colour", "red", &*container()), 0);
}

TEST_F(ConfigLoading, KeepsTheMessageOfAFileThatCannotBeReadWithoutThePrefix) {
    container()->onCfgUpdate();
    EXPECT_EQ(diagnostics().texts().back(), givingUp());
    EXPECT_EQ(diagnostics().records().back().priority, 3);
}

TEST_F(ConfigLoading, AMissingFileUnloadsNothingAndLeavesNoSyslogTarget) {
    messagesOf(targetLine("claims_syslog"));
    ASSERT_TRUE(container()->hasSyslogTarget());
    std::filesystem::remove(defaultFile());
    container()->onCfgUpdate();
    EXPECT_THAT(container().targets, SizeIs(1));
    EXPECT_FALSE(container()->hasSyslogTarget());
    EXPECT_TRUE(diagnostics().has(givingUp()));
}

TEST_F(ConfigLoading, KeepsEveryTargetWhenTheFileIsBroken) {
    messagesOf(targetLine("recording"));
    journal::clear();
    EXPECT_EQ(messagesOf(kTooLongLine).back(), givingUp());
    EXPECT_THAT(container().targets, SizeIs(1));
    EXPECT_THAT(journal::lines(), IsEmpty());
    container().send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(ConfigLoading, WhatABrokenFileSaysBeforeItsErrorIsDone) {
    messagesOf("component=net,1\n" + targetLine("recording") + kTooLongLine + "component=net,11\n" +
               targetLine("recording_b"));
    EXPECT_THAT(sink().levels(), ElementsAre(Pair("net", "1")));
    EXPECT_THAT(container().targets, ElementsAre(Pair(pluginPath("recording"), testing::_)));
    container().send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(ConfigLoading, AFileThatIsADirectoryUnloadsNothing) {
    messagesOf(targetLine("recording"));
    std::filesystem::remove(defaultFile());
    std::filesystem::create_directory(defaultFile());
    container()->onCfgUpdate();
    EXPECT_THAT(container().targets, SizeIs(1));
    EXPECT_EQ(diagnostics().texts().back(), givingUp());
}

TEST_F(ConfigLoading, ALastLineWithoutALineFeedUnloadsNothing) {
    messagesOf(targetLine("recording"));
    EXPECT_EQ(messagesOf("component=net,1").back(), givingUp());
    EXPECT_THAT(container().targets, SizeIs(1));
}
