// The `target` lines of the configuration: how they are taken apart, and when they load.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

using Parameters = std::map<std::string, std::string>;

class TargetEntry : public ContainerFixture {
protected:
    TargetEntry() : m_container(directory(), false, nullptr) {}

    OpenContainer& container() { return m_container; }

    void reread(const std::string& text) {
        configure(text);
        m_container->onCfgUpdate();
    }

    // The parameters with which the target of a line is created: "PATH" stands for the library, and what is always
    // there is left out when it is empty.
    Parameters parametersOf(std::string value) {
        const std::string path = pluginPath("recording");
        value.replace(value.find("PATH"), 4, path);
        reread("target=" + value + "\n");
        const std::vector<PluginEvent> created = journal::ofKind("create");
        EXPECT_THAT(created, SizeIs(1)) << value;
        EXPECT_EQ(m_container.targets.count(path), 1U) << value;
        Parameters parameters = created.empty() ? Parameters{{"not", "created"}} : created[0].params;
        EXPECT_EQ(parameters.count("application-name"), 1U);
        if (parameters["application-name"].empty()) {
            parameters.erase("application-name");
        }
        return parameters;
    }

    std::vector<std::string> loadedPaths() const {
        std::vector<std::string> paths;
        for (const auto& entry : m_container.targets) {
            paths.push_back(entry.first);
        }
        return paths;
    }

private:
    OpenContainer m_container;
};

} // namespace

TEST_F(TargetEntry, APathAloneGivesOnlyTheApplicationName) {
    EXPECT_THAT(parametersOf("PATH"), IsEmpty());
    EXPECT_EQ(journal::ofKind("create")[0].text, "LogTarget");
}

TEST_F(TargetEntry, ParametersFollowBehindCommas) {
    EXPECT_THAT(parametersOf("PATH, file=/var/log/app.log, maxsize = 4096"),
                ElementsAre(Pair("file", "/var/log/app.log"), Pair("maxsize", "4096")));
}

TEST_F(TargetEntry, EmptyPiecesBetweenCommasAreDropped) {
    EXPECT_THAT(parametersOf(",,PATH,,a=1,"), ElementsAre(Pair("a", "1")));
}

TEST_F(TargetEntry, BlanksAroundPathNamesAndValuesAreTrimmed) {
    EXPECT_THAT(parametersOf("\t PATH \t,\ta\t=\t1\t"), ElementsAre(Pair("a", "1")));
}

TEST_F(TargetEntry, SpacesInsideAValueStay) {
    EXPECT_THAT(parametersOf("PATH, file = /var/log/my log"), ElementsAre(Pair("file", "/var/log/my log")));
}

TEST_F(TargetEntry, KeepsTheFirstOfParametersThatRepeat) {
    EXPECT_THAT(parametersOf("PATH,level=3,level=5"), ElementsAre(Pair("level", "3")));
}

TEST_F(TargetEntry, ParametersThatAreNotNameAndValueAreIgnoredInSilence) {
    EXPECT_THAT(parametersOf("PATH,verbose,a=b=c,x=,=y,=,a==b=c"), IsEmpty());
    EXPECT_EQ(diagnostics().texts()[2], "opened shared library \"" + pluginPath("recording") + "\"");
}

TEST_F(TargetEntry, KeepsAParameterWithADoubledEqualSign) {
    EXPECT_THAT(parametersOf("PATH,a==b,=c=d="), ElementsAre(Pair("a", "b"), Pair("c", "d")));
}

// A blank is a piece of its own, which is then trimmed.
TEST_F(TargetEntry, ABlankNameOrValueIsEmpty) {
    EXPECT_THAT(parametersOf("PATH,a= ,\t=b"), ElementsAre(Pair("", "b"), Pair("a", "")));
}

TEST_F(TargetEntry, KeepsTheApplicationNameOfTheLine) {
    container().appname = "player";
    EXPECT_THAT(parametersOf("PATH,application-name=other"), ElementsAre(Pair("application-name", "other")));
}

TEST_F(TargetEntry, WithoutOneTheNameOfTheApplicationIsPassed) {
    container().appname = "player";
    EXPECT_THAT(parametersOf("PATH,a=b"), ElementsAre(Pair("a", "b"), Pair("application-name", "player")));
}

TEST_F(TargetEntry, TheMessagesOfALoadNameTheTargetAndItsLibrary) {
    const std::string path = pluginPath("recording");
    reread("target=" + path + ",tag=x\n");
    const std::string quoted = "\"" + path + "\"";
    std::vector<std::string> messages = diagnostics().texts();
    messages.erase(messages.begin()); // that the file is read
    EXPECT_THAT(messages, ElementsAre("callback \"target\"=\"" + path + ",tag=x\"", "opened shared library " + quoted,
                                      "calling init function for shared library " + quoted,
                                      "Retrieving classfactory from shared library " + quoted,
                                      "will load target recording:x from lib " + path));
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(TargetEntry, TheSameLibraryTwiceLoadsOnce) {
    const std::string path = pluginPath("recording");
    reread("target=" + path + ",tag=first\ntarget= " + path + " ,tag=second\n");
    EXPECT_THAT(loadedPaths(), ElementsAre(path));
    ASSERT_THAT(journal::ofKind("create"), SizeIs(1));
    EXPECT_EQ(journal::ofKind("create")[0].library, "recording:first");
    EXPECT_EQ(diagnostics().texts().back(), "logtarget-container: library \"" + path + "\" already loaded");
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(TargetEntry, ALaterReReadOfTheSameLineLoadsNothing) {
    reread(targetLine("recording"));
    diagnostics().clear();
    reread(targetLine("recording"));
    EXPECT_EQ(diagnostics().count("logtarget-container: library \"" + pluginPath("recording") + "\" already loaded"),
              1);
    EXPECT_THAT(journal::ofKind("create"), SizeIs(1));
}

TEST_F(TargetEntry, TwoSpellingsOfOnePathAreTwoTargets) {
    const std::string other = std::string(SORREL_TEST_PLUGIN_DIR) + "/./recording.so";
    reread(targetLine("recording") + "target=" + other + "\n");
    EXPECT_THAT(loadedPaths(), UnorderedElementsAre(pluginPath("recording"), other));
    EXPECT_THAT(journal::ofKind("create"), SizeIs(2));
    EXPECT_THAT(journal::ofKind("init"), SizeIs(2));
    container().send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello", "hello"));
    reread(targetLine("recording"));
    container().send("again");
    EXPECT_EQ(journal::lines().back(), "recording log again") << "the other spelling still works";
}

TEST_F(TargetEntry, ARelativePathWithASlashIsTakenFromTheWorkingDirectory) {
    ASSERT_EQ(chdir(SORREL_TEST_PLUGIN_DIR), 0);
    reread("target=./recording.so\n");
    EXPECT_THAT(loadedPaths(), ElementsAre("./recording.so"));
}

TEST_F(TargetEntry, ABareNameIsSearchedForAndNotTakenFromTheWorkingDirectory) {
    ASSERT_EQ(chdir(SORREL_TEST_PLUGIN_DIR), 0);
    reread("target=recording.so\n");
    EXPECT_THAT(loadedPaths(), IsEmpty());
    EXPECT_THAT(diagnostics().texts().back(),
                StartsWith("logtarget-container: Unable to load the logtarget-library \"recording.so\" - errno="));
}

TEST_F(TargetEntry, ALibraryThatCannotBeLoadedIsReportedAndTheReadingGoesOn) {
    reread("target=/nowhere/no.so,a=b\n" + targetLine("recording"));
    EXPECT_THAT(loadedPaths(), ElementsAre(pluginPath("recording")));
    const SyslogRecord message = diagnostics().records()[3];
    EXPECT_THAT(message.text,
                StartsWith("logtarget-container: Unable to load the logtarget-library \"/nowhere/no.so\" - errno="));
    EXPECT_EQ(message.priority, 3);
}

TEST_F(TargetEntry, ALibraryThatCannotBeLoadedIsTriedAgainAtEachReRead) {
    const std::string path = files().file("later.so");
    const std::string text = "target=" + path + "\n";
    reread(text);
    diagnostics().clear();
    reread(text);
    EXPECT_THAT(diagnostics().texts().back(),
                StartsWith("logtarget-container: Unable to load the logtarget-library \"" + path + "\""));
    std::filesystem::create_symlink(pluginPath("recording"), path);
    reread(text);
    EXPECT_THAT(loadedPaths(), ElementsAre(path));
}

TEST_F(TargetEntry, ARejectedLibraryIsTriedAgainAtEachReRead) {
    reread(targetLine("null_object"));
    reread(targetLine("null_object"));
    EXPECT_EQ(diagnostics().count("logtarget-container: Unable to create LogTarget from lib \"" +
                                  pluginPath("null_object") + "\""),
              2);
    EXPECT_THAT(journal::ofKind("done"), SizeIs(2));
}

// What the loader makes of the empty path is its own affair: it may open the program itself.
TEST_F(TargetEntry, KeepsHandingAnEmptyPathToTheLoader) {
    reread("target=,\n" + targetLine("recording"));
    EXPECT_TRUE(diagnostics().has("callback \"target\"=\",\""));
    EXPECT_TRUE(diagnostics().has("opened shared library \"\"") ||
                diagnostics().texts()[2].rfind("Unable to open shared library \"\" - error=", 0) == 0);
    EXPECT_EQ(container().targets.count(pluginPath("recording")), 1U) << "the reading goes on";
}

TEST_F(TargetEntry, TheHandlerReturnsZeroWhateverHappens) {
    EXPECT_EQ(container()->onCfgParamTarget("target", pluginPath("recording")), 0);
    EXPECT_EQ(container()->onCfgParamTarget("target", pluginPath("recording")), 0);
    EXPECT_EQ(container()->onCfgParamTarget("anything", "/nowhere/no.so"), 0);
    EXPECT_EQ(container()->onCfgParamTarget("target", pluginPath("null_object")), 0);
    EXPECT_EQ(container()->onCfgParamTarget("target", pluginPath("null_factory")), 0);
    EXPECT_THAT(loadedPaths(), ElementsAre(pluginPath("recording")));
}

TEST_F(TargetEntry, WithALineThatIsHandedInAReReadFromInsideTheTargetIsDoneAtOnce) {
    configure("");
    journal::onEvent("create", [this](const PluginEvent&) {
        container()->onCfgUpdate();
        EXPECT_EQ(readsOf(defaultFile()), 1);
    });
    container()->lock();
    container()->onCfgParamTarget("target", pluginPath("recording"));
    container()->unlock();
    journal::onEvent("create", nullptr);
    EXPECT_THAT(journal::ofKind("create"), SizeIs(1));
}

TEST_F(TargetEntry, ANewTargetIsMarkedAsSeen) {
    container()->onCfgParamTarget("target", pluginPath("recording"));
    EXPECT_TRUE(container().targets.at(pluginPath("recording")).seen);
}
