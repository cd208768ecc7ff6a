// The environment variable that replaces the directory of the configuration files.
#include "container_fixture.hpp"

#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uid_t kSomebodyElse = 65534;

class SorlPath : public ContainerFixture {
protected:
    static void setPath(const std::string& path) { setenv("SORL_PATH", path.c_str(), 1); }

    static std::string overrideMessage(const std::string& from, const std::string& to) {
        return "logtarget-container: using sorrel config path override from environment: \"" + from + "\" ==> \"" + to +
               "\"";
    }
};

// What a command writes when it is run as somebody else.
std::string outputAsSomebodyElse(const std::string& command) {
    int ends[2];
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        if (setgid(kSomebodyElse) == 0 && setuid(kSomebodyElse) == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        }
        dprintf(STDOUT_FILENO, "plain: nobody else can be the user of this program");
        _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    char buffer[256];
    std::string output;
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return output;
}

} // namespace

TEST_F(SorlPath, ReplacesTheWholeDirectoryWithAMessage) {
    configure(targetLine("recording"));
    configureApp("player", targetLine("recording_b"));
    setPath(directory());
    OpenContainer container("/given", true, nullptr);
    EXPECT_EQ(diagnostics().texts().front(), overrideMessage("/given", directory()));
    EXPECT_EQ(diagnostics().records().front().priority, 7);
    EXPECT_EQ(container->getDefaultCfgFilename(), directory() + "/sorrel.cfg");
    EXPECT_EQ(readsOf(directory() + "/sorrel.cfg"), 1);
    EXPECT_NE(container.worker, nullptr) << "the file is watched there, too";
    container->setAppname("player");
    EXPECT_EQ(readsOf(directory() + "/sorrel-player.cfg"), 1);
    ASSERT_THAT(container.targets, SizeIs(1));
    EXPECT_EQ(container.targets.begin()->first, pluginPath("recording_b"));
}

TEST_F(SorlPath, TheEmptyStringPutsTheFilesAtTheRootOfTheFileSystem) {
    setPath("");
    OpenContainer container(directory(), true);
    EXPECT_EQ(diagnostics().texts().front(), overrideMessage(directory(), ""));
    EXPECT_EQ(container->getDefaultCfgFilename(), "/sorrel.cfg");
    EXPECT_EQ(readsOf("/sorrel.cfg"), 1);
    container.appname = "NAME";
    EXPECT_EQ(container->getAppCfgFilename(), "/sorrel-NAME.cfg");
}

TEST_F(SorlPath, IsTakenAsItStands) {
    setPath("relative/dir/");
    OpenContainer container(directory(), true);
    EXPECT_EQ(container->getDefaultCfgFilename(), "relative/dir//sorrel.cfg");
}

TEST_F(SorlPath, UnsetLeavesTheDirectoryInSilence) {
    configure("");
    OpenContainer container(directory(), true);
    EXPECT_EQ(container->getDefaultCfgFilename(), directory() + "/sorrel.cfg");
    EXPECT_EQ(diagnostics().texts().front(),
              "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"");
}

TEST_F(SorlPath, DoesNotConcernAPassiveContainer) {
    setPath(directory());
    OpenContainer container("/given", false, nullptr);
    EXPECT_EQ(container->getDefaultCfgFilename(), "/given/sorrel.cfg");
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(SorlPath, IsLookedAtOnlyWhenAContainerIsBuilt) {
    configure("");
    OpenContainer container(directory(), true);
    setPath("/elsewhere");
    container->onCfgUpdate();
    EXPECT_EQ(readsOf(defaultFile()), 2);
}

TEST_F(SorlPath, ReplacesTheDirectoryOfTheLogger) {
    configure(targetLine("recording"));
    setPath(directory());
    CSorrel::getInstance();
    EXPECT_EQ(diagnostics().texts().front(), overrideMessage("/etc/sorrel", directory()));
    EXPECT_THAT(journal::ofKind("create"), SizeIs(1));
}

TEST_F(SorlPath, WithoutItTheLoggerReadsEtcSorrel) {
    configure(targetLine("recording"));
    configureApp("player", targetLine("recording_b"));
    std::filesystem::copy(directory(), "/etc/sorrel");
    CSorrel::getInstance();
    EXPECT_THAT(journal::ofKind("create"), SizeIs(1));
    EXPECT_EQ(readsOf("/etc/sorrel/sorrel.cfg"), 1);
    sorrel_set_applicationname("player");
    EXPECT_EQ(readsOf("/etc/sorrel/sorrel-player.cfg"), 1);
}

TEST_F(SorlPath, IsIgnoredByAProgramThatRunsWithRaisedRights) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "not run: only root can give a program to another user";
    }
    // The kernel raises the rights of what it starts itself: the program, or its emulator.
    const std::string command = SORREL_TEST_SECURE_COMMAND;
    const std::size_t started = std::min(command.find(' '), command.size());
    const std::string program = files().file("program");
    std::filesystem::copy(command.substr(0, started), program);
    ASSERT_EQ(chmod(directory().c_str(), 0755), 0);
    setPath("/from/environment");
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    const std::string output = outputAsSomebodyElse(program + command.substr(started));
    if (output.rfind("plain ", 0) == 0) {
        GTEST_SKIP() << "not run: no program in " << directory() << " gets raised rights (mounted nosuid?): " << output;
    }
    EXPECT_EQ(output, "secure /given/sorrel.cfg\n");
}

TEST_F(SorlPath, IsObeyedByTheSameProgramWithoutRaisedRights) {
    setPath("/from/environment");
    std::FILE* const output = popen(SORREL_TEST_SECURE_COMMAND, "r");
    ASSERT_NE(output, nullptr);
    char line[256] = "";
    EXPECT_NE(std::fgets(line, sizeof line, output), nullptr);
    EXPECT_EQ(pclose(output), 0);
    EXPECT_STREQ(line, "plain /from/environment/sorrel.cfg\n");
}
