// Which one file is read: the default one, or that of the application.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <filesystem>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ConfigChoice : public ContainerFixture {
protected:
    // The files that were read since the last look.
    std::vector<std::string> filesRead() {
        const std::string start = "logtarget-container: reading sorrel-config from file \"";
        std::vector<std::string> found;
        for (const SyslogRecord& record : diagnostics().records()) {
            if (record.text.rfind(start, 0) == 0) {
                EXPECT_EQ(record.priority, 7);
                found.push_back(record.text.substr(start.size(), record.text.size() - start.size() - 1));
            }
        }
        diagnostics().clear();
        return found;
    }

    static std::vector<std::string> loaded(const OpenContainer& container) {
        std::vector<std::string> names;
        for (const auto& entry : container.targets) {
            names.push_back(std::filesystem::path(entry.first).stem().string());
        }
        return names;
    }
};

} // namespace

TEST_F(ConfigChoice, TheNamesOfTheFilesAreBuiltFromDirectoryAndApplication) {
    OpenContainer container("/etc/sorrel", false, nullptr);
    EXPECT_EQ(container->getDefaultCfgFilename(), "/etc/sorrel/sorrel.cfg");
    EXPECT_EQ(container->getAppCfgFilename(), "/etc/sorrel/sorrel-.cfg");
    container.appname = "player";
    EXPECT_EQ(container->getDefaultCfgFilename(), "/etc/sorrel/sorrel.cfg");
    EXPECT_EQ(container->getAppCfgFilename(), "/etc/sorrel/sorrel-player.cfg");
}

TEST_F(ConfigChoice, TheNameOfTheApplicationIsInsertedAsItStands) {
    OpenContainer container(directory(), false);
    container.appname = " x/../y z";
    EXPECT_EQ(container->getAppCfgFilename(), directory() + "/sorrel- x/../y z.cfg");
}

TEST_F(ConfigChoice, WithoutANameTheDefaultFileIsRead) {
    configure("");
    configureApp("", "");
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    EXPECT_THAT(filesRead(), ElementsAre(defaultFile()));
}

TEST_F(ConfigChoice, WithANameWhoseFileIsMissingTheDefaultFileIsReadInSilence) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container.appname = "player";
    container->onCfgUpdate();
    EXPECT_EQ(diagnostics().texts().front(),
              "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"");
    EXPECT_THAT(filesRead(), ElementsAre(defaultFile()));
    EXPECT_THAT(loaded(container), ElementsAre("recording"));
}

TEST_F(ConfigChoice, WithBothFilesOnlyThatOfTheApplicationIsRead) {
    configure(targetLine("recording"));
    configureApp("player", targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container.appname = "player";
    container->onCfgUpdate();
    EXPECT_THAT(filesRead(), ElementsAre(appFile("player")));
    EXPECT_THAT(loaded(container), ElementsAre("recording_b"));
}

TEST_F(ConfigChoice, SettingTheNameSwitchesToTheFileOfTheApplication) {
    configure(targetLine("recording") + targetLine("without_hooks"));
    configureApp("player", targetLine("recording_b") + targetLine("without_hooks"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    EXPECT_THAT(loaded(container), ElementsAre("recording", "without_hooks"));
    container->setAppname("player");
    EXPECT_THAT(filesRead(), ElementsAre(defaultFile(), appFile("player")));
    EXPECT_THAT(loaded(container), ElementsAre("recording_b", "without_hooks"));
}

TEST_F(ConfigChoice, DeletingTheFileOfTheApplicationSwitchesBackAtTheNextReRead) {
    configure(targetLine("recording") + targetLine("without_hooks"));
    configureApp("player", targetLine("recording_b") + targetLine("without_hooks"));
    OpenContainer container(directory(), false);
    container->setAppname("player");
    std::filesystem::remove(appFile("player"));
    filesRead();
    container->onCfgUpdate();
    EXPECT_THAT(filesRead(), ElementsAre(defaultFile()));
    EXPECT_THAT(loaded(container), ElementsAre("recording", "without_hooks"));
    EXPECT_EQ(journal::lines().back(), "without_hooks isSyslog");
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
}

TEST_F(ConfigChoice, CreatingTheFileOfTheApplicationSwitchesToItAtTheNextReRead) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->setAppname("player");
    configureApp("player", targetLine("recording_b"));
    container->onCfgUpdate();
    EXPECT_THAT(filesRead(), ElementsAre(defaultFile(), appFile("player")));
    EXPECT_THAT(loaded(container), ElementsAre("recording_b"));
}

TEST_F(ConfigChoice, AnotherNameSwitchesToAnotherFile) {
    configure("");
    configureApp("player", targetLine("recording"));
    configureApp("tuner", targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->setAppname("player");
    container->setAppname("tuner");
    EXPECT_THAT(loaded(container), ElementsAre("recording_b"));
    container->setAppname("");
    EXPECT_THAT(filesRead(), ElementsAre(appFile("player"), appFile("tuner"), defaultFile()));
    EXPECT_THAT(loaded(container), IsEmpty());
}

// A file that exists is chosen, whether it can be read or not.
TEST_F(ConfigChoice, AnUnreadableFileOfTheApplicationIsNotReplacedByTheDefaultFile) {
    configure(targetLine("recording"));
    std::filesystem::create_directory(appFile("player"));
    OpenContainer container(directory(), false);
    container->setAppname("player");
    EXPECT_TRUE(diagnostics().has("unable to read sorrel-config \"" + appFile("player") + "\" - giving up."));
    EXPECT_THAT(loaded(container), IsEmpty());
}
