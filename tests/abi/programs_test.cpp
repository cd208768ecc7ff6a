// Whole programs that link the shared library: in plain C, at a fixed address, and with a library that logs before
// main.
#include "private_system.hpp"
#include "raw_target.hpp"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

// The programs may write to /etc, and their system log goes nowhere.
class Programs : public RawTargetFixture {
protected:
    Programs() {
        enterPrivateSystem();
        setenv("SORL_PATH", directory().path().c_str(), 1);
    }

    // The status with which the program exits; -1 when it does not.
    static int run(std::vector<std::string> command) {
        std::vector<char*> argv;
        for (std::string& argument : command) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        pid_t child = -1;
        if (posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
            return -1;
        }
        int status = -1;
        const bool exited = waitpid(child, &status, 0) == child && WIFEXITED(status);
        return exited ? WEXITSTATUS(status) : -1;
    }

    // The ends of the messages: thread, component, function and text.
    std::vector<std::string> messages() const {
        std::vector<std::string> result;
        for (const std::string& line : calls()) {
            if (line.rfind("log ", 0) == 0) {
                result.push_back(line.substr(line.find('[')));
            }
        }
        return result;
    }

    void expectPlainCProgramToWork(const std::string& program) const {
        EXPECT_EQ(run({program, directory().file("sorrel.cfg")}), 0);
        const std::vector<std::string> lines = calls();
        const auto lineOf = [&lines](const char* end) {
            const auto line = std::find_if(lines.begin(), lines.end(), [end](const std::string& candidate) {
                return candidate.find(end) != std::string::npos;
            });
            return line == lines.end() ? std::string() : *line;
        };
        const std::string announced = lineOf("[SR_ENTERLEAVE=");
        const std::string entering = lineOf("[entering]");
        std::smatch seenByProgram;
        std::smatch seenByTarget;
        ASSERT_TRUE(std::regex_search(announced, seenByProgram, std::regex("SR_ENTERLEAVE=(0x[0-9a-f]+)")));
        ASSERT_TRUE(std::regex_search(entering, seenByTarget, std::regex(" (0x[0-9a-f]+) ")));
        EXPECT_EQ(seenByProgram[1], seenByTarget[1]);
        EXPECT_THAT(messages(),
                    ElementsAre("[main] [plain-c] [] [----- Thread main started.]",
                                "[main] [plain-c] [] [SR_ENTERLEAVE=" + seenByTarget[1].str() + "]",
                                "[main] [plain-c] [] [via syslog]",
                                "[main] [plain-c] [] [0x00000000 - 64 75 6d 70                                     "
                                "| dump]",
                                "[main] [plain-c] [logEverything] [entering]",
                                "[main] [plain-c] [logEverything] [leaving]",
                                "[main] [plain-c] [] [----- Thread main ending.]"));
        EXPECT_THAT(lines, testing::Contains("appname c-program"));
    }
};

TEST_F(Programs, PlainCUsesEveryCFunction) {
    expectPlainCProgramToWork(SORREL_TEST_C_PROGRAM);
}

TEST_F(Programs, PlainCAtAFixedAddressSeesTheSameLevelsAsTheLibrary) {
    expectPlainCProgramToWork(SORREL_TEST_C_PROGRAM_NO_PIE);
}

TEST_F(Programs, AtAFixedAddressTheDataOfTheClassesIsTheLibrarys) {
    EXPECT_EQ(run({SORREL_TEST_NO_PIE_PROGRAM}), 0);
    EXPECT_THAT(calls(), ElementsAre("create LogTarget", "getName", "isSyslogTarget", "component no-pie", "destroy"));
}

TEST_F(Programs, ALibraryLogsFromAStaticConstructorBeforeMain) {
    EXPECT_EQ(run({SORREL_TEST_EARLY_PROGRAM}), 0);
    EXPECT_THAT(messages(), ElementsAre("[<no name>] [early] [] [from a static constructor]",
                                        "[<no name>] [early] [] [from main]"));
}

} // namespace
