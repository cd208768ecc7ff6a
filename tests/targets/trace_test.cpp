// The events of the trace target: what viewers make of messages.
#include "trace_fixture.hpp"

#include <cerrno>
#include <thread>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using TraceTarget = TraceFixture;

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
    enter(1, "again");
    leave(0, "again");
    EXPECT_EQ(shown(), "track main\n"
                       "  outer {\n"
                       "    TRACE net [inner] 1: leaving\n"
                       "  }\n"
                       "  TRACE net [] -1: leaving\n"
                       "  one {\n"
                       "  }\n"
                       "  TRACE net [other] 0: leaving\n"
                       "  again {\n"
                       "  }\n"
                       "  TRACE net [again] 0: leaving\n");
}

TEST_F(TraceTarget, RecordsThatAMaskKeptBackChangeNoOtherFunction) {
    open();
    enter(0, "outer"); // and inner, unseen
    leave(1, "inner");
    say("still in outer", 1, "outer");
    leave(0, "outer");
    enter(0, "lost"); // and left, unseen
    say("outside again");
    say("outside much later");
    EXPECT_EQ(shown(), "track main\n"
                       "  outer {\n"
                       "    TRACE net [inner] 1: leaving\n"
                       "    INFO net [outer] 1: still in outer\n"
                       "  }\n"
                       "  lost {\n"
                       "  }\n"
                       "  INFO net [] 0: outside again\n"
                       "  INFO net [] 0: outside much later\n");
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

TEST_F(TraceTarget, ManyThreadsThatEndInAFunctionTakeNoMemory) {
    open();
    enter(0, "f");
    for (int i = 0; i < 1100; ++i) {
        std::thread([this] { enter(0, "g"); }).join();
    }
    leave(0, "f");
    EXPECT_THAT(shown(), StartsWith("track main, main\n  f {\n    TRACE net [f] 0: leaving\ntrack main\n  g {\n"));
}

TEST_F(TraceTarget, OfManyThreadsThoseThatWereSilentForLongestAreGivenUp) {
    open();
    enter(0, "f");
    for (int i = 0; i < 2000; ++i) {
        std::thread([this] { enter(0, "g"); }).join();
        if (i % 100 == 0) {
            enter(1, "h");
        }
    }
    leave(0, "f");
    EXPECT_THAT(shown(), StartsWith("track main\n  f {\n    h {\n    }\n"));
    EXPECT_THAT(shown(), HasSubstr("    h {\n    }\n  }\ntrack main\n  g {\n"));
}

TEST_F(TraceTarget, TheProcessHasTheNameOfTheApplication) {
    open();
    say("a");
    container().setAppname("station");
    say("b");
    say("c");
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
