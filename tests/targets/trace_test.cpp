// The trace target: what viewers make of its file, also when the process dies.
#include "child_process.hpp"
#include "target_fixture.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int kEnterLeave = 8;

class TraceTarget : public TargetFixture {
protected:
    void open(const std::string& parameters = "") {
        load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("%p.json") + parameters);
    }

    std::string path() { return files().path() + "/" + std::to_string(getpid()) + ".json"; }
    std::string content() { return files().read(std::to_string(getpid()) + ".json"); }

    void enter(int depth, const std::string& function) { record(depth, function, "entering"); }
    void leave(int depth, const std::string& function) { record(depth, function, "leaving"); }
    void say(const std::string& text, int depth = 0, const std::string& function = "") {
        log({text, depth, 6, "main", "net", function, ++m_time});
    }
    void sayAs(const std::string& threadName, const std::string& text) { log({text, 0, 6, threadName, "net"}); }

    // What a viewer would show below the line that names the process.
    std::string shown(const std::string& file, const std::string& option = "") {
        const std::string all = outputOf(SORREL_TEST_SHOW_TRACE " " + option + file + " 2>&1");
        EXPECT_THAT(all, StartsWith("process "));
        return all.substr(all.find('\n') + 1);
    }
    std::string shown() { return shown(path()); }

    int m_time = 0;

private:
    void record(int depth, const std::string& function, const std::string& text) {
        log({text, depth, kEnterLeave, "main", "net", function, ++m_time});
    }
};

} // namespace

TEST_F(TraceTarget, FunctionsBecomeSlicesAndOtherMessagesMarks) {
    open();
    say("before");
    enter(0, "outer");
    enter(1, "inner");
    say("within", 2, "inner");
    leave(1, "inner");
    leave(0, "outer");
    say("after");
    EXPECT_EQ(shown(), "track main\n"
                       "  INFO net [] 0: before\n"
                       "  outer {\n"
                       "    inner {\n"
                       "      INFO net [inner] 2: within\n"
                       "    }\n"
                       "  }\n"
                       "  INFO net [] 0: after\n");
}

TEST_F(TraceTarget, AnEventHoldsWhatViewersAskFor) {
    open();
    say("hello", 2, "poll");
    const std::string ids = "\"pid\":" + std::to_string(getpid()) + ",\"tid\":" + std::to_string(gettid());
    EXPECT_EQ(content(),
              "[\n{\"ph\":\"M\"," + ids + ",\"name\":\"process_name\",\"args\":{\"name\":\"" +
                  program_invocation_short_name + "\"}},\n{\"ph\":\"M\"," + ids +
                  ",\"name\":\"thread_name\",\"args\":{\"name\":\"main\"}},\n{\"ph\":\"i\"," + ids +
                  ",\"name\":\"hello\",\"ts\":1709211845000001,\"s\":\"t\",\"cat\":\"net\",\"args\":{\"level\":"
                  "\"INFO\",\"component\":\"net\",\"function\":\"poll\",\"depth\":2}}\n]\n");
}

TEST_F(TraceTarget, ALevelWithoutANameIsANumber) {
    open();
    log({"odd", 0, 32});
    EXPECT_THAT(shown(), HasSubstr("  32 "));
}

TEST_F(TraceTarget, AFunctionWhoseEndWasNotRecordedEndsWithItsCaller) {
    open();
    enter(0, "outer");
    enter(1, "inner");
    leave(0, "outer");
    EXPECT_EQ(shown(), "track main\n  outer {\n    inner {\n    }\n  }\n");
}

TEST_F(TraceTarget, AFunctionWhoseEndWasNotRecordedEndsAtTheNextMessageOfItsCaller) {
    open();
    enter(0, "lost");
    say("outside");
    enter(0, "next");
    enter(0, "after that");
    EXPECT_EQ(shown(), "track main\n  lost {\n  }\n  INFO net [] 0: outside\n  next {\n  }\n  after that {\n");
}

TEST_F(TraceTarget, AnEndWhoseBeginningWasNotRecordedIsAMark) {
    open();
    enter(0, "outer");
    leave(1, "inner");
    leave(0, "outer");
    leave(-1, "");
    enter(0, "one");
    leave(0, "other");
    EXPECT_EQ(shown(), "track main\n"
                       "  outer {\n"
                       "    TRACE net [inner] 1: leaving\n"
                       "  }\n"
                       "  TRACE net [] -1: leaving\n"
                       "  one {\n"
                       "  }\n"
                       "  TRACE net [other] 0: leaving\n");
}

TEST_F(TraceTarget, TextsOfTheTracesThatAreOtherMessagesAreMarks) {
    open();
    log({"entering", 0, 6});
    log({"entering the room", 0, kEnterLeave});
    EXPECT_THAT(shown(), EndsWith("0: entering\n  TRACE net [] 0: entering the room\n"));
}

TEST_F(TraceTarget, EachThreadHasATrackOfItsOwn) {
    open();
    enter(0, "f");
    std::thread([this] { sayAs("helper", "beside"); }).join();
    leave(0, "f");
    EXPECT_EQ(shown(), "track main\n  f {\n  }\ntrack helper\n  INFO net [] 0: beside\n");
}

TEST_F(TraceTarget, ATrackIsRenamedWithItsThreadButNotAtItsEnd) {
    open();
    sayAs("<no name>", "a");
    sayAs("worker", "b");
    sayAs("worker", "c");
    sayAs("<thrd done>", "d");
    EXPECT_THAT(shown(), StartsWith("track <no name>, worker\n"));
    std::thread([this] { sayAs("<thrd done>", "e"); }).join();
    EXPECT_THAT(shown(), HasSubstr("\ntrack <thrd done>\n"));
}

TEST_F(TraceTarget, ManyThreadsThatAreGoneTakeNoMemory) {
    open();
    enter(0, "f");
    for (int i = 0; i < 1500; ++i) {
        std::thread([this, i] { sayAs("t", std::to_string(i)); }).join();
    }
    leave(0, "f");
    EXPECT_THAT(shown(), StartsWith("track main\n  f {\n  }\ntrack t\n  INFO net [] 0: 0\n"));
}

TEST_F(TraceTarget, TheProcessHasTheNameOfTheApplication) {
    open();
    say("a");
    container().setAppname("station");
    say("b");
    EXPECT_THAT(outputOf(SORREL_TEST_SHOW_TRACE " " + path()),
                StartsWith(std::string("process ") + program_invocation_short_name + ", station\n"));
}

TEST_F(TraceTarget, TextsMayHoldAnything) {
    open();
    say("\"quoted\" \\ \t\n\x1b\x7f \xc3\xa9 \xff");
    EXPECT_THAT(content(), HasSubstr("\"\\\"quoted\\\" \\\\ \\u0009\\u000a\\u001b\\u007f \xc3\xa9 \\ufffd\""));
    EXPECT_THAT(shown(), StartsWith("track main\n"));
}

TEST_F(TraceTarget, TimeGoesOnWhenTheClockIsSetBack) {
    open();
    enter(0, "f");
    m_time = -5000000;
    say("a", 1, "f");
    m_time += 100;
    leave(0, "f");
    EXPECT_THAT(shown(), HasSubstr("}\n"));
    EXPECT_THAT(content(), HasSubstr("\"a\",\"ts\":1709211845000001"));
    EXPECT_THAT(content(), HasSubstr("\"f\",\"ts\":1709211845000102"));
}

TEST_F(TraceTarget, TheFileIsCompleteAfterEachMessageAndNoEventCrossesAPage) {
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

TEST_F(TraceTarget, TheFileIsValidWhenTheProcessIsKilled) {
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
        EXPECT_TRUE(waitUntil([&] { return stat(file.c_str(), &status) == 0 && status.st_size > round * 3000; }));
        kill(child, SIGKILL);
        EXPECT_EQ(endOfChild(child), -SIGKILL);
        EXPECT_THAT(shown(file, "--killed "), StartsWith("track main\n  f {\n"));
    }
}

TEST_F(TraceTarget, AForkChildWritesAFileOfItsOwn) {
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
    EXPECT_THAT(files().read(std::to_string(child) + ".json"), HasSubstr("\"tid\":" + std::to_string(child) + ","));
}

TEST_F(TraceTarget, AFullFileIsKeptAndANewOneBegins) {
    open(", max_size=65536");
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

TEST_F(TraceTarget, AFileThatIsThereIsKept) {
    files().write(std::to_string(getpid()) + ".json", "of yesterday");
    open();
    say("hello");
    EXPECT_THAT(shown(), EndsWith(": hello\n"));
    EXPECT_EQ(files().read(std::to_string(getpid()) + ".json.1"), "of yesterday");
}

TEST_F(TraceTarget, WithoutAPlaceForTheProcessIdItIsAppended) {
    load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("trace"));
    say("hello");
    EXPECT_THAT(shown(files().file("trace." + std::to_string(getpid()))), EndsWith(": hello\n"));
}

TEST_F(TraceTarget, OthersCannotReadTheFile) {
    umask(0);
    open();
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(TraceTarget, ASymbolicLinkIsNotFollowed) {
    files().write("victim", "");
    ASSERT_EQ(symlink(files().file("victim").c_str(), path().c_str()), 0);
    open();
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"file\": \"" + files().file("%p.json") +
                                  "\" cannot be made: File exists"));
    EXPECT_EQ(files().read("victim"), "");
}

TEST_F(TraceTarget, ADirectoryIsLeftAlone) {
    ASSERT_EQ(mkdir(path().c_str(), 0700), 0);
    open();
    EXPECT_TRUE(diagnostics().has("trace-target: parameter \"file\": \"" + files().file("%p.json") +
                                  "\" cannot be made: File exists"));
}

TEST_F(TraceTarget, AFullDiskLeavesAValidFileAndLosesWhatItSays) {
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
    EXPECT_THAT(shown(file),
                testing::ContainsRegex("WARN trace \\[\\] 1: [0-9]+ messages lost: No space left on device\n"
                                       "    INFO net \\[f\\] 1: better\n  }\n$"));
}
