// The `component` lines of the configuration, as far as the container understands them.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class ComponentEntry : public ContainerFixture {
protected:
    ComponentEntry() : m_container(directory(), false, &m_sink) {}

    OpenContainer& container() { return m_container; }

    // What the sink is given by a file of these lines.
    RecordingSink::Levels levelsOf(const std::string& text) {
        configure(text);
        m_container->onCfgUpdate();
        return m_sink.levels();
    }

private:
    RecordingSink m_sink;
    OpenContainer m_container;
};

} // namespace

TEST_F(ComponentEntry, NameAndLevelGoToTheSink) {
    EXPECT_THAT(levelsOf("component=net,11111111\n"), ElementsAre(Pair("net", "11111111")));
}

TEST_F(ComponentEntry, BlanksAroundTheNameAreTrimmedAndThoseInsideStay) {
    EXPECT_THAT(levelsOf("component =  audio decoder  , 0000 0011\n"), ElementsAre(Pair("audio decoder", "00000011")));
}

TEST_F(ComponentEntry, EveryBlankOfTheLevelIsRemoved) {
    EXPECT_THAT(levelsOf("component=net,  1 0 1 \ncomponent=net,\t1\t0\v1\f1\n"),
                ElementsAre(Pair("net", "101"), Pair("net", "1011")));
}

TEST_F(ComponentEntry, TheLevelIsPassedOnWhateverItsCharacters) {
    EXPECT_THAT(levelsOf("component=net,0xff\ncomponent=net,DEBUG\n"),
                ElementsAre(Pair("net", "0xff"), Pair("net", "DEBUG")));
}

TEST_F(ComponentEntry, ALineThatDoesNotHaveTwoPiecesIsIgnoredInSilence) {
    EXPECT_THAT(levelsOf("component=net\ncomponent=net,\ncomponent=,11\ncomponent=,\ncomponent=a,b,c\n"
                         "component=net,1,1\n"),
                IsEmpty());
    for (const std::string& text : diagnostics().texts()) {
        EXPECT_EQ(text.rfind("Modifying", 0), std::string::npos) << text;
    }
}

TEST_F(ComponentEntry, EmptyPiecesDoNotCount) {
    EXPECT_THAT(levelsOf("component=,,net,,1,\n"), ElementsAre(Pair("net", "1")));
}

TEST_F(ComponentEntry, ABlankPieceCountsAndIsAnEmptyLevel) {
    EXPECT_THAT(levelsOf("component=net, ,\n"), ElementsAre(Pair("net", "")));
}

TEST_F(ComponentEntry, TheMessageShowsBothAsTheyStandInTheFile) {
    levelsOf("component=net , 1 0 1\n");
    EXPECT_EQ(diagnostics().texts().back(), "Modifying component \"net \": new level=\" 1 0 1\"");
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(ComponentEntry, EveryLineIsAppliedInItsOrder) {
    EXPECT_THAT(levelsOf("component=net,1\ncomponent=audio,10\ncomponent=net,11\n"),
                ElementsAre(Pair("net", "1"), Pair("audio", "10"), Pair("net", "11")));
}

TEST_F(ComponentEntry, EachReReadAppliesTheLinesThatTheFileHolds) {
    levelsOf("component=net,1\n");
    EXPECT_THAT(levelsOf("component=net,1\n"), ElementsAre(Pair("net", "1"), Pair("net", "1")));
    EXPECT_THAT(levelsOf(""), ElementsAre(Pair("net", "1"), Pair("net", "1")));
}

TEST_F(ComponentEntry, KeepsNameAndLevelInTheirOrderWhenTheSinkRefuses) {
    RecordingSink refusing(-1);
    OpenContainer refused(directory(), false, &refusing);
    configure("component= net , 1 1\ncomponent=audio,10\n");
    refused->onCfgUpdate();
    EXPECT_TRUE(diagnostics().has("Unable to set level \"net\" for component \"11\""));
    EXPECT_EQ(diagnostics().texts().back(), "Unable to set level \"audio\" for component \"10\"");
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(ComponentEntry, NothingIsReportedWhenTheSinkAccepts) {
    levelsOf("component=net,1\n");
    EXPECT_EQ(diagnostics().texts().back(), "Modifying component \"net\": new level=\"1\"");
}

TEST_F(ComponentEntry, WithoutASinkTheLinesAreIgnored) {
    OpenContainer alone(directory(), false, nullptr);
    configure("component=net,1\n" + targetLine("recording"));
    alone->onCfgUpdate();
    EXPECT_EQ(alone.targets.size(), 1U);
}

TEST_F(ComponentEntry, TheHandlerReturnsZeroWhateverHappens) {
    EXPECT_EQ(container()->onCfgParamComponent("component", "net,1"), 0);
    EXPECT_EQ(container()->onCfgParamComponent("anything", "net"), 0);
    RecordingSink refusing(1);
    OpenContainer refused(directory(), false, &refusing);
    EXPECT_EQ(refused->onCfgParamComponent("component", "net,1"), 0);
}
