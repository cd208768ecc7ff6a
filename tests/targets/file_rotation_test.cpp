// The file target, when its file is full and gets another name.
#include "child_process.hpp"
#include "line_target_fixture.hpp"
#include "proc_self.hpp"
#include "shared_object.hpp"
#include "watchdog.hpp"

#include <atomic>
#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Lines of 100 bytes, so that ten of them fill a file of 1000.
constexpr std::size_t kLineLength = 100;

class FileRotation : public LineTargetFixture {
protected:
    // A line of that length, whose text ends in a word of its own.
    void sayWord(const std::string& word) {
        constexpr std::size_t kAround = 55;
        log({std::string(kLineLength - kAround - 1 - word.size(), '-') + " " + word});
    }

    void sayNumbers(int first, int last) {
        for (int i = first; i <= last; ++i) {
            sayWord(std::to_string(i));
        }
    }

    std::uintmax_t sizeOf(const std::string& file) { return std::filesystem::file_size(files().file(file)); }

    // A file, the older ones behind it, and how many lines of which words they hold together.
    std::map<std::string, int> wordsInAllFiles(std::uintmax_t limit) {
        std::map<std::string, int> words;
        for (const auto& entry : std::filesystem::directory_iterator(files().path())) {
            const std::string name = entry.path().filename();
            if (name.rfind("app.log", 0) == 0) {
                EXPECT_LE(entry.file_size(), limit) << name;
                for (const std::string& line : linesOf(files().read(name))) {
                    EXPECT_EQ(line.size(), kLineLength - 1) << name << ": " << line;
                    ++words[line.substr(line.rfind(' ') + 1)];
                }
            }
        }
        return words;
    }

    // Two processes at a time write words, and every word is in one of the files afterwards.
    void expectTwoProcessesToShareFiles(const std::string& parameters, std::uintmax_t limit) {
        constexpr int kWords = 1000;
        SharedObject<std::atomic<unsigned int>> ready;
        configure("target=" + fileTarget(parameters) + "\n"); // here, for each would find it half written by the other
        const auto writeAs = [&](const std::string& name) {
            return startChild([&, name] {
                read();
                ++*ready;
                while (*ready < 2) {
                    sched_yield();
                }
                for (int i = 0; i < kWords; ++i) {
                    sayWord(name + std::to_string(i));
                }
                unload();
                return true;
            });
        };
        const pid_t first = writeAs("a");
        const pid_t second = writeAs("b");
        EXPECT_EQ(endOfChild(first), kChildPassed);
        EXPECT_EQ(endOfChild(second), kChildPassed);
        const std::map<std::string, int> words = wordsInAllFiles(limit);
        EXPECT_EQ(words.size(), 2U * kWords);
        for (const auto& word : words) {
            EXPECT_EQ(word.second, 1) << word.first;
        }
    }
};

} // namespace

TEST_F(FileRotation, AFullFileBecomesTheFirstOlderOne) {
    load(fileTarget("max_size=1000"));
    sayNumbers(0, 9);
    EXPECT_FALSE(exists("app.log.1"));
    EXPECT_EQ(sizeOf("app.log"), 1000U);
    sayWord("10");
    EXPECT_EQ(sizeOf("app.log.1"), 1000U);
    EXPECT_THAT(textsIn("app.log"), ElementsAre("10"));
    sayNumbers(11, 20);
    EXPECT_THAT(textsIn("app.log.2").front(), "0");
    EXPECT_THAT(textsIn("app.log.1").front(), "10");
    EXPECT_THAT(textsIn("app.log"), ElementsAre("20"));
}

TEST_F(FileRotation, NoFileExceedsItsSizeByAByte) {
    load(fileTarget("max_size=999"));
    sayNumbers(0, 9);
    EXPECT_EQ(sizeOf("app.log.1"), 900U);
    EXPECT_THAT(textsIn("app.log"), ElementsAre("9"));
}

TEST_F(FileRotation, ALineThatIsLongerThanTheLimitHasAFileForItself) {
    load(fileTarget("max_size=150"));
    sayWord("0");
    log({std::string(500, 'x')});
    sayWord("2");
    EXPECT_THAT(textsIn("app.log.2"), ElementsAre("0"));
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre(std::string(500, 'x')));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("2"));
}

TEST_F(FileRotation, SoManyOlderFilesAreKept) {
    load(fileTarget("max_size=100,max_files=2"));
    sayNumbers(0, 4);
    EXPECT_THAT(textsIn("app.log.2"), ElementsAre("2"));
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre("3"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("4"));
    EXPECT_FALSE(exists("app.log.3"));
}

TEST_F(FileRotation, WhatIsInTheFileAlreadyCounts) {
    files().write("app.log", std::string(950, 'x') + "\n");
    load(fileTarget("max_size=1k"));
    sayWord("0");
    EXPECT_EQ(sizeOf("app.log.1"), 951U);
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0"));
}

TEST_F(FileRotation, TheEndOfAHalfLineCountsToo) {
    files().write("app.log", std::string(100, 'x'));
    load(fileTarget("max_size=200"));
    sayWord("0");
    EXPECT_EQ(textOf("app.log.1"), std::string(100, 'x'));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0"));
}

TEST_F(FileRotation, ABufferIsSharedOutOverSeveralFiles) {
    load(fileTarget("max_size=250,flush=err"));
    sayNumbers(0, 4);
    EXPECT_THAT(textsIn("app.log"), IsEmpty());
    unload();
    EXPECT_THAT(textsIn("app.log.2"), ElementsAre("0", "1"));
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre("2", "3"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("4"));
}

TEST_F(FileRotation, TwoProcessesLoseNothing) {
    expectTwoProcessesToShareFiles("max_size=5k,max_files=999,wait=30000", 5 * 1024);
}

TEST_F(FileRotation, TwoProcessesWithBuffersLoseNothing) {
    expectTwoProcessesToShareFiles("max_size=5k,max_files=999,wait=30000,flush=err", 5 * 1024);
}

TEST_F(FileRotation, TwoProcessesWithoutALimitTearNoLine) {
    expectTwoProcessesToShareFiles("", kLineLength * 2000);
}

TEST_F(FileRotation, AChildRotatesTheFileOfItsParent) {
    load(fileTarget("max_size=300"));
    sayWord("0");
    EXPECT_TRUE(passesInChild([this] {
        sayNumbers(1, 3);
        return true;
    }));
    sayWord("4");
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre("0", "1", "2"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("3", "4"));
}

TEST_F(FileRotation, AChildHasADescriptorOfItsOwnAndSoALockOfItsOwn) {
    load(fileTarget("max_size=1k"));
    sayWord("0");
    int fd = -1;
    for (const auto& descriptor : openDescriptors()) {
        fd = descriptor.second == files().file("app.log") ? descriptor.first : fd;
    }
    const off_t offset = lseek(fd, 0, SEEK_CUR);
    EXPECT_EQ(offset, 100);
    EXPECT_TRUE(passesInChild([this] {
        sayWord("1");
        return true;
    }));
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), offset); // which all who share it share
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0", "1"));
}

TEST_F(FileRotation, AProcessThatStopsWithTheLockHoldsNobodyUp) {
    const Watchdog watchdog;
    load(fileTarget("max_size=250"));
    const int other = open(files().file("app.log").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    sayNumbers(0, 3);
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0", "1", "2", "3")); // rather too long than lost
    close(other);
    sayWord("4");
    EXPECT_THAT(textsIn("app.log"), ElementsAre("4"));
}

TEST_F(FileRotation, WhereTheClockIsCoarseALockIsWaitedForNoLonger) {
    constexpr unsigned long kLongestNanosecondsTooLate = 500000000;
    ASSERT_EQ(prctl(PR_SET_TIMERSLACK, kLongestNanosecondsTooLate), 0);
    const Watchdog watchdog(std::chrono::seconds(20));
    load(fileTarget("max_size=250"));
    const int other = open(files().file("app.log").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    sayWord("0");
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0"));
    close(other);
}

TEST_F(FileRotation, AFileThatCannotBeRenamedGrows) {
    std::filesystem::create_directories(files().file("app.log.1/inside"));
    load(fileTarget("max_size=250,max_files=1"));
    sayNumbers(0, 4);
    EXPECT_THAT(textsIn("app.log"), ElementsAre("0", "1", "2", "3", "4")); // rather too long than lost
    std::filesystem::remove_all(files().file("app.log.1"));
    sayWord("5");
    EXPECT_THAT(textsIn("app.log"), ElementsAre("5"));
}

TEST_F(FileRotation, AFileThatCannotBeRenamedCostsNoOlderOne) {
    files().write("app.log", "");
    ASSERT_EQ(mount(files().file("app.log").c_str(), files().file("app.log").c_str(), "", MS_BIND, nullptr), 0);
    files().write("app.log.1", "old 1\n");
    files().write("app.log.2", "old 2\n");
    load(fileTarget("max_size=250,max_files=3"));
    sayNumbers(0, 9);
    unload();
    EXPECT_EQ(textsIn("app.log").size(), 10U);
    ASSERT_EQ(umount(files().file("app.log").c_str()), 0);
    EXPECT_THAT(textsIn("app.log.2"), ElementsAre("1"));
    EXPECT_THAT(textsIn("app.log.3"), ElementsAre("2"));
}
