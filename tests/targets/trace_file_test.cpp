// The file of the trace target: valid whatever happens, and nobody else's.
#include "child_process.hpp"
#include "trace_fixture.hpp"

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using TraceFile = TraceFixture;

TEST_F(TraceFile, TheFileIsCompleteAfterEachMessageAndNoEventCrossesAPage) {
    open();
    std::size_t checked = 0;
    for (int i = 0; i < 300; ++i) {
        say(std::string(static_cast<std::size_t>(i * 7 % 100), 'x'));
        EXPECT_THAT(content(), EndsWith("}\n]\n"));
    }
    EXPECT_THAT(shown(), StartsWith("track main\n"));
    const std::string text = content();
    for (std::size_t begin = text.find('{'); begin != std::string::npos; ++checked) {
        const std::size_t end = text.find("}}", begin);
        EXPECT_EQ(begin / 4096, end / 4096);
        begin = text.find("{\"ph", end);
    }
    EXPECT_EQ(checked, 302U);
}

TEST_F(TraceFile, TheFileIsValidWhenTheProcessIsKilled) {
    open();
    for (int round = 0; round < 20; ++round) {
        const pid_t child = startChild([this] {
            for (int depth = 0;; depth = (depth + 1) % 20) {
                enter(depth, "f");
                say(std::string(static_cast<std::size_t>(depth * 50), 'x'), depth + 1, "f");
            }
            return true;
        });
        const std::string file = files().file(std::to_string(child) + ".json");
        struct stat status {};
        EXPECT_TRUE(
            waitUntil([&] { return stat(file.c_str(), &status) == 0 && status.st_size > 1000 + 3000L * round; }));
        kill(child, SIGKILL);
        EXPECT_EQ(endOfChild(child), -SIGKILL);
        EXPECT_THAT(shown(file, "--killed "), StartsWith("track main\n  f {\n"));
    }
}

TEST_F(TraceFile, AForkChildWritesAFileOfItsOwn) {
    open();
    enter(0, "f");
    const pid_t child = startChild([this] {
        say("in the child", 1, "f");
        leave(0, "f");
        return true;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    leave(0, "f");
    EXPECT_EQ(shown(), "track main\n  f {\n  }\n");
    const std::string file = files().file(std::to_string(child) + ".json");
    EXPECT_EQ(shown(file), "track main\n  INFO net [f] 1: in the child\n  TRACE net [f] 0: leaving\n");
    const std::string parentsThread = "\"tid\":" + std::to_string(gettid()) + ",";
    EXPECT_THAT(files().read(std::to_string(child) + ".json"), Not(HasSubstr(parentsThread)));
}

TEST_F(TraceFile, AFullFileIsKeptAndANewOneBegins) {
    open(", max_size=64k");
    enter(0, "f");
    int last = 0;
    while (access((path() + ".1").c_str(), F_OK) != 0) {
        say(std::to_string(++last), 1, "f");
    }
    leave(0, "f");
    EXPECT_THAT(shown(path() + ".1"), EndsWith("    INFO net [f] 1: " + std::to_string(last - 1) + "\n"));
    EXPECT_EQ(shown(), "track main\n  f {\n    INFO net [f] 1: " + std::to_string(last) + "\n  }\n");
    struct stat status {};
    EXPECT_EQ(stat((path() + ".1").c_str(), &status), 0);
    EXPECT_LE(status.st_size, 65536);
    EXPECT_GT(status.st_size, 65000);
}

TEST_F(TraceFile, NoFileGrowsBeyondItsSize) {
    open(", max_size=66000");
    for (int i = 0; i < 1000; ++i) {
        say(std::string(static_cast<std::size_t>(500 + i * 7 % 300), 'x'));
        ASSERT_LE(content().size(), 66000U);
    }
    EXPECT_GT(files().read(std::to_string(getpid()) + ".json.1").size(), 64000U);
}

TEST_F(TraceFile, AMessageThatNoFileHasRoomForIsLost) {
    open(", max_size=66000");
    say(std::string(66000, 'x'));
    EXPECT_LE(content().size(), 66000U);
    say("better");
    EXPECT_THAT(shown(), EndsWith("1 message lost: Message too long\n  INFO net [] 0: better\n"));
}

TEST_F(TraceFile, DeepStacksLeaveHalfOfAFileToMessages) {
    open(", max_size=70000");
    int depth = 0;
    for (; depth < 900; ++depth) {
        enter(depth, "function");
    }
    for (int i = 0; i < 500; ++i) {
        say("message " + std::to_string(i), depth, "function");
        ASSERT_LE(content().size(), 70000U);
    }
    const std::string newest = shown(path() + ".1") + shown();
    for (int i = 400; i < 500; ++i) {
        EXPECT_THAT(newest, HasSubstr(": message " + std::to_string(i) + "\n"));
    }
    EXPECT_THAT(shown(), StartsWith("track main\n  function {\n    function {\n"));
    while (depth > 0) {
        leave(--depth, "function");
        ASSERT_LE(content().size(), 70000U);
    }
    say("outside");
    EXPECT_THAT(shown(), EndsWith("\n  INFO net [] 0: outside\n"));
}

TEST_F(TraceFile, TheStacksOfAllThreadsTogetherLeaveHalfOfAFileToMessages) {
    open(", max_size=70000");
    const std::string function(200, 'f');
    const auto descend = [&] {
        for (int depth = 0; depth < 100; ++depth) {
            enter(depth, function);
        }
    };
    std::promise<void> isFull;
    std::promise<void> isDeep;
    std::thread other([&] {
        descend();
        isDeep.set_value();
        isFull.get_future().wait();
        say("other", 100);
    });
    isDeep.get_future().wait();
    descend();
    for (int i = 0; i < 200; ++i) {
        say("message " + std::to_string(i), 100);
    }
    isFull.set_value();
    other.join();
    EXPECT_EQ(access((path() + ".1").c_str(), F_OK), 0);
    EXPECT_THAT(shown(), StartsWith("track main\n  " + function + " {\n"));
    EXPECT_THAT(shown(), HasSubstr(": message 199\ntrack main\n  " + function + " {\n"));
    EXPECT_THAT(shown(), EndsWith(": other\n"));
}

TEST_F(TraceFile, AFunctionThatANewFileDoesNotKnowEndsWithAMark) {
    open(", max_size=64k");
    enter(0, "f");
    std::thread([this] {
        while (access((path() + ".1").c_str(), F_OK) != 0) {
            sayAs("helper", "more");
        }
    }).join();
    leave(0, "f");
    EXPECT_THAT(shown(), EndsWith("track main\n  TRACE net [f] 0: leaving\n"));
}

TEST_F(TraceFile, ASizeThatIsTooSmallIsRefused) {
    open(", max_size=63k");
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"max_size\": \"63k\" is not a number of bytes from 65536 "
                                  "to 9223372036854775807"));
}

TEST_F(TraceFile, AnyThreadMayFillAFile) {
    open(", max_size=65536");
    say("first");
    std::thread([this] {
        while (access((path() + ".1").c_str(), F_OK) != 0) {
            sayAs("helper", "more");
        }
    }).join();
    say("last");
    EXPECT_EQ(shown(), "track helper\n  INFO net [] 0: more\ntrack main\n  INFO net [] 0: last\n");
}

TEST_F(TraceFile, AFileThatIsThereIsKept) {
    files().write(std::to_string(getpid()) + ".json", "of yesterday");
    open();
    say("hello");
    EXPECT_THAT(shown(), EndsWith(": hello\n"));
    EXPECT_EQ(files().read(std::to_string(getpid()) + ".json.1"), "of yesterday");
}

TEST_F(TraceFile, WithoutAPlaceForTheProcessIdItIsAppended) {
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("trace"));
    say("hello");
    EXPECT_THAT(shown(files().file("trace." + std::to_string(getpid()))), EndsWith(": hello\n"));
}

TEST_F(TraceFile, NewFilesLieBesideTheFirstWhereverTheProcessHasGone) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directory(files().file("100%"));
    std::filesystem::create_directory(files().file("elsewhere"));
    std::filesystem::current_path(files().file("100%"));
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=%p.json");
    std::filesystem::current_path("../elsewhere");
    const pid_t child = startChild([this] {
        say("in the child");
        return true;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::is_empty(files().file("elsewhere")));
    EXPECT_THAT(shown(files().file("100%/" + std::to_string(child) + ".json")), EndsWith(": in the child\n"));
}

TEST_F(TraceFile, TheNameHoldsProcessAndApplication) {
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, application-name=../play, file=" + files().file("%a-%%p-%p.json"));
    say("hello");
    container().setAppname("later");
    say("again");
    EXPECT_THAT(shown(files().file("_._play-%p-" + std::to_string(getpid()) + ".json")), EndsWith(": again\n"));
}

TEST_F(TraceFile, APercentSignIsNoPlaceForTheProcessId) {
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("%%p"));
    say("hello");
    EXPECT_THAT(shown(files().file("%p." + std::to_string(getpid()))), EndsWith(": hello\n"));
}

TEST_F(TraceFile, AnUnknownPlaceIsRefused) {
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("%p-%x.json"));
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"file\": \"" + files().file("%p-%x.json") +
                                  "\" holds a % that is none of %p, %a and %%"));
}

TEST_F(TraceFile, OthersCannotReadTheFile) {
    umask(0);
    open();
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(TraceFile, ASymbolicLinkIsNotFollowed) {
    files().write("victim", "");
    ASSERT_EQ(symlink(files().file("victim").c_str(), path().c_str()), 0);
    open();
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"file\": \"" + files().file("%p.json") +
                                  "\" cannot be made: File exists"));
    EXPECT_EQ(files().read("victim"), "");
}

TEST_F(TraceFile, ADirectoryIsLeftAlone) {
    ASSERT_EQ(mkdir(path().c_str(), 0700), 0);
    open();
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"file\": \"" + files().file("%p.json") +
                                  "\" cannot be made: File exists"));
}

TEST_F(TraceFile, AFullDiskLeavesAValidFileAndLosesWhatItSays) {
    mountSmallDisk();
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + disk() + "/%p.json");
    const std::string file = disk() + "/" + std::to_string(getpid()) + ".json";
    enter(0, "f");
    for (int i = 0; i < 2000; ++i) {
        say("hello", 1, "f");
    }
    EXPECT_THAT(shown(file), EndsWith(": hello\n"));
    growDisk();
    say("better", 1, "f");
    leave(0, "f");
    EXPECT_THAT(shown(file), ContainsRegex("WARN trace \\[\\] 1: [0-9]+ messages lost: No space left on device\n"
                                           "    INFO net \\[f\\] 1: better\n  }\n$"));
}

TEST_F(TraceFile, AFunctionThatFindsNoRoomLeavesTheOpenOneAsItIs) {
    mountSmallDisk();
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + disk() + "/%p.json");
    const std::string file = disk() + "/" + std::to_string(getpid()) + ".json";
    enter(0, "f");
    std::ofstream(disk() + "/all the rest") << std::string(1U << 18U, 'x');
    enter(0, std::string(4096, 'g'));
    growDisk();
    say("better", 1, "f");
    leave(0, "f");
    EXPECT_EQ(shown(file), "track main\n  f {\n    WARN trace [] 1: 1 message lost: No space left on device\n"
                           "    INFO net [f] 1: better\n  }\n");
}
