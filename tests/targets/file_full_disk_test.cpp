// The file target on a file system that is full: a tmpfs of 64 KiB.
#include "child_process.hpp"
#include "line_target_fixture.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <vector>

using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

constexpr char kDisk[] = "/run/disk";
constexpr char kFile[] = "/run/disk/app.log";
constexpr char kBallast[] = "/run/disk/ballast";
constexpr std::size_t kPage = 4096;

class FileFullDisk : public LineTargetFixture {
protected:
    FileFullDisk() {
        mkdir(kDisk, 0755);
        EXPECT_EQ(mount("sorrel-test", kDisk, "tmpfs", 0, "size=64k"), 0);
    }

    static std::string target(const std::string& parameters = "") {
        return targetPath("file") + ",file=" + kFile + (parameters.empty() ? "" : "," + parameters);
    }

    static std::string text() {
        std::ostringstream text;
        text << std::ifstream(kFile).rdbuf();
        return text.str();
    }

    // Takes up what is free, but for so many pages.
    static void fillDisk(std::size_t pagesLeft) {
        std::ofstream ballast(kBallast);
        ballast << std::string(2 * kPage * pagesLeft, 'x') << std::flush; // what is given back below
        const std::string page(kPage, 'x');
        while (ballast << page << std::flush) {
        }
        struct stat status = {};
        ASSERT_EQ(stat(kBallast, &status), 0);
        ASSERT_EQ(truncate(kBallast, status.st_size - static_cast<off_t>(pagesLeft * kPage)), 0);
    }

    static void freeDisk() { std::remove(kBallast); }

    // Logs numbers from `first` on until the disk is full and `further` of them were lost. Returns the next number.
    int sayUntilFull(int first, int further) {
        int number = first;
        std::string before;
        do {
            before = text();
            log({"number " + std::to_string(number++)});
        } while (text() != before);
        for (int i = 1; i < further; ++i) {
            log({"number " + std::to_string(number++)});
        }
        return number;
    }

    static void expectWholeLines() {
        EXPECT_EQ(text().back(), '\n');
        EXPECT_THAT(linesOf(text()),
                    Each(MatchesRegex("2024-02-29 13:04:05\\.000042 (INFO   net |WARN   file)     main  "
                                      "     (number [0-9]+|[0-9]+ messages? lost: .*)")));
    }
};

} // namespace

TEST_F(FileFullDisk, LossesAreCountedAndAnnouncedOnceThereIsRoomAgain) {
    load(target());
    fillDisk(1);
    const int next = sayUntilFull(0, 5);
    expectWholeLines();
    freeDisk();
    log({"number " + std::to_string(next)});
    expectWholeLines();
    const std::vector<std::string> lines = linesOf(text());
    EXPECT_THAT(lines[lines.size() - 2], HasSubstr(" 5 messages lost: No space left on device"));
    EXPECT_THAT(lines.back(), HasSubstr(" number " + std::to_string(next)));
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(next) - 5 + 2);
}

TEST_F(FileFullDisk, ACutOffLineIsTakenBackSoThatAnotherProcessCanGoOn) {
    load(target());
    fillDisk(1);
    const int next = sayUntilFull(0, 1);
    EXPECT_LT(text().size(), kPage); // a part of the last line had room
    freeDisk();
    EXPECT_TRUE(passesInChild([&] {
        log({"number " + std::to_string(next)});
        return true;
    }));
    expectWholeLines();
}

TEST_F(FileFullDisk, NobodyWritesWhileAnotherProcessTakesALineBack) {
    constexpr std::chrono::milliseconds kWait(200);
    load(target("wait=" + std::to_string(kWait.count())));
    fillDisk(0);
    log({"number 0"});
    freeDisk();
    const int other = open(kFile, O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    const auto begin = std::chrono::steady_clock::now();
    log({"number 1"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, kWait / 2);
    EXPECT_THAT(text(), HasSubstr(" number 1\n"));
    close(other);
}

TEST_F(FileFullDisk, WithALimitLinesStayWholeToo) {
    load(target("max_size=2000,max_files=9"));
    fillDisk(2);
    for (int i = 0; i < 300; ++i) {
        log({"number " + std::to_string(i)});
    }
    freeDisk();
    log({"number 300"});
    expectWholeLines();
    EXPECT_THAT(text(), HasSubstr(" messages lost: No space left on device\n"));
    EXPECT_THAT(text(), HasSubstr(" number 300\n"));
}

TEST_F(FileFullDisk, ABufferKeepsItsLinesUntilThereIsRoom) {
    load(target("flush=err"));
    fillDisk(0);
    for (int i = 0; i < 50; ++i) {
        log({"number " + std::to_string(i), 0, i % 2 == 0 ? 3 : 6});
    }
    EXPECT_EQ(text(), "");
    freeDisk();
    unload();
    const std::vector<std::string> lines = linesOf(text());
    ASSERT_EQ(lines.size(), 50U);
    EXPECT_THAT(lines.front(), HasSubstr(" number 0"));
    EXPECT_THAT(lines.back(), HasSubstr(" number 49"));
}

TEST_F(FileFullDisk, ABufferThatIsFullTooLosesLines) {
    load(target("flush=err"));
    fillDisk(0);
    for (int i = 0; i < 10; ++i) {
        log({std::string(10000, 'x')});
    }
    freeDisk();
    log({"the end", 0, 3});
    EXPECT_THAT(text(), HasSubstr(" 4 messages lost: No space left on device\n"));
    EXPECT_THAT(text(), HasSubstr(" the end\n"));
    EXPECT_EQ(linesOf(text()).size(), 6U + 2);
}

TEST_F(FileFullDisk, ABufferThatCannotBeWrittenInTheEndIsALossOfItsMessages) {
    setVerboseDiagnostics();
    load(target("flush=err"));
    log({"number 0", 0, 3});
    fillDisk(0);
    log({std::string(kPage, 'x')});
    log({"number 2"});
    unload();
    EXPECT_TRUE(diagnostics().has("file-target: 2 messages lost: No space left on device"));
    EXPECT_TRUE(diagnostics().has("file-target: 1 messages written, 0 dropped, 2 failed"));
}
