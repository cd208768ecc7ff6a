// Processes that are killed in the middle of a re-read, as a power cut or the out-of-memory killer does it: the next
// one finds everything in order.
#include "child_process.hpp"
#include "dial_fixture.hpp"
#include "shared_object.hpp"
#include "storm_size.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <random>

using testing::ElementsAre;

namespace {

constexpr int kRereadKills = 100;
constexpr int kMaxRereadMicroseconds = 3000;
constexpr unsigned int kDial = 5;

// A line of the file target, with this text and its line feed, has 128 bytes. The kernel looks for a deadly signal
// between two pages of a write, so that only a line that ends within its page is whole for certain.
constexpr std::size_t kLineSize = 128;
const std::string kText = std::string(72, '-') + "|";

// What the process that is going to be killed tells its parent.
struct Progress {
    std::atomic<int> rereads{0};
    std::atomic<bool> isRereading{false};
};

void logForEver(sorrel_component* component) {
    for (;;) {
        _sorrel(component, SR_INFO, "%s", kText.c_str());
    }
}

class KillStorm : public DialFixture {
protected:
    KillStorm() {
        configure(fileTarget() + "component=dial,101\n");
        configureApp("player", fileTarget() + target("recording") + "component=player,1\n");
        configureApp("viewer", target("recording_b") + "component=viewer,1\n");
    }

    static std::string directory() { return std::getenv("SORL_PATH"); }
    static std::string logFile() { return directory() + "/log"; }
    static std::string fileTarget() { return "target=" SORREL_TEST_FILE_TARGET ",file=" + logFile() + "\n"; }

    // Logs in two threads and re-reads in a third, until it is killed.
    [[noreturn]] static void stormForEver(Progress& progress) {
        sorrel_component* const net = buildLogger();
        std::thread(logForEver, net).detach();
        std::thread(logForEver, net).detach();
        for (;;) {
            progress.isRereading = true;
            sorrel_set_applicationname(progress.rereads % 2 == 0 ? "player" : "viewer");
            progress.isRereading = false;
            ++progress.rereads;
        }
    }

    // Kills a process some time after its first re-reads. Whether it was inside one.
    bool killOne() {
        SharedObject<Progress> progress;
        const pid_t child = startChild([&progress]() -> bool { stormForEver(*progress); });
        EXPECT_TRUE(waitUntil([&progress] { return progress->rereads >= 2; }));
        std::this_thread::sleep_for(std::chrono::microseconds(m_delay(m_random)));
        kill(child, SIGKILL);
        EXPECT_EQ(endOfChild(child), -SIGKILL);
        return progress->isRereading;
    }

    // The next process reads the configuration, logs and exits.
    static bool nextProcessWorks() {
        return passesInChild([]() -> bool {
            sorrel_component* const net = buildLogger();
            _sorrel(net, SR_INFO, "%s", kText.c_str());
            std::exit(sorrel::sorrel_get_component_level("dial") == kDial ? kChildPassed : EXIT_FAILURE);
        });
    }

    static std::vector<std::string> logLines() {
        std::vector<std::string> lines;
        std::ifstream file(logFile());
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line + (file.eof() ? "" : "\n"));
        }
        return lines;
    }

    static bool isWhole(const std::string& line) {
        return line.size() == kLineSize && line.compare(kLineSize - kText.size() - 1, kText.size(), kText) == 0;
    }

    static std::vector<std::string> filesInDirectory() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::mt19937 m_random; // not seeded: always the same delays
    std::uniform_int_distribution<int> m_delay{0, kMaxRereadMicroseconds};
};

} // namespace

TEST_F(KillStorm, TheNextProcessWorksAndTheLogHoldsOnlyWholeLines) {
    int insideRereads = 0;
    const int kills = stormCount(kRereadKills);
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        insideRereads += killOne() ? 1 : 0;
        const std::size_t before = logLines().size();
        EXPECT_TRUE(nextProcessWorks());
        const std::vector<std::string> lines = logLines();
        EXPECT_EQ(lines.size(), before + 1);
        for (const std::string& line : lines) {
            EXPECT_TRUE(isWhole(line)) << line;
        }
        EXPECT_THAT(filesInDirectory(), ElementsAre("log", "sorrel-player.cfg", "sorrel-viewer.cfg", "sorrel.cfg"));
        std::filesystem::remove(logFile());
    }
    std::printf("%d kills, %d of them inside a re-read\n", kills, insideRereads);
    EXPECT_GT(insideRereads, 0);
}
