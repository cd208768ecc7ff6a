// The console target: its lines, times and colours.
#include "line_target_fixture.hpp"
#include "standard_streams.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class Console : public LineTargetFixture {
protected:
    Console() {
        for (const char* name : {"TERM", "NO_COLOR", "JOURNAL_STREAM"}) {
            unsetenv(name);
        }
    }

    static std::string target(const std::string& parameters = "") {
        return targetPath("console") + (parameters.empty() ? "" : "," + parameters);
    }

    // What messages look like in a pipe.
    std::string shown(const std::string& parameters, const std::vector<TestMessage>& messages) {
        const Pipe pipe;
        const Redirected redirected(STDOUT_FILENO, pipe.input());
        load(target(parameters));
        for (const TestMessage& message : messages) {
            log(message);
        }
        unload();
        return pipe.read();
    }

    std::string shown(const TestMessage& message) { return shown("", {message}); }

    // What "hello" looks like on a terminal.
    std::string shownOnTerminal(const std::string& parameters = "") {
        const Terminal terminal;
        const Redirected redirected(STDOUT_FILENO, terminal.input());
        load(target(parameters));
        log({"hello"});
        std::string text;
        waitUntil([&] { return (text += terminal.read()).find('\n') != std::string::npos; });
        return text;
    }

    void expectRefusal(const std::string& parameters, const std::string& why) {
        load(target(parameters));
        EXPECT_TRUE(diagnostics().has("console-target: parameter " + why)) << why;
        EXPECT_FALSE(isLibraryOpen(targetPath("console")));
    }
};

constexpr char kPlain[] = "13:04:05.000042 INFO   net      main       hello\n";
constexpr char kColoured[] = "13:04:05.000042 \x1b[32mINFO   \x1b[0mnet      main       hello\n";

TestMessage at(long long seconds, int microseconds) {
    return {"hello", 0, 6, "", "net", "main", seconds, microseconds};
}

} // namespace

TEST_F(Console, ShowsTimeLevelComponentThreadAndText) {
    EXPECT_EQ(shown({"hello"}), kPlain);
}

TEST_F(Console, IndentsByDepthAndNamesTheFunction) {
    EXPECT_EQ(shown({"hello", 2, 7, "poll"}), "13:04:05.000042 DEBUG  net      main           [poll] hello\n");
}

TEST_F(Console, NoLineIsIndentedByMoreThanAHundredFunctions) {
    const std::string line = "13:04:05.000042 INFO   net      main       " + std::string(200, ' ') + "hello\n";
    EXPECT_EQ(shown("", {{"hello", 100}, {"hello", 101}, {"hello", 1000}}), line + line + line);
}

TEST_F(Console, ANegativeDepthIsNotIndented) {
    EXPECT_EQ(shown({"hello", -3}), kPlain);
}

TEST_F(Console, ALevelWithoutANameIsShownAsItsNumber) {
    EXPECT_THAT(shown("", {{"hello", 0, 32}, {"hello", 0, -1}}), HasSubstr(" hello\n13:04:05.000042 -1     net "));
    EXPECT_THAT(shown({"hello", 0, 32}), StartsWith("13:04:05.000042 32     net "));
}

TEST_F(Console, ControlCharactersAreShownAndUtf8IsKept) {
    EXPECT_THAT(shown({"a\nb\tc\x1b[2J\x7f"}), EndsWith(" a\\nb\\tc\\x1b[2J\\x7f\n"));
    EXPECT_THAT(shown({"\xc3\xa9 \xc2\xb0 \xc2\x9b"}), EndsWith(" \xc3\xa9 \xc2\xb0 \\xc2\\x9b\n"));
    EXPECT_THAT(shown({"a\x9b"
                       "31m \xe2\x82\x9b \xff"}),
                EndsWith(" a\\x9b31m \xe2\x82\x9b \xff\n"));
    EXPECT_THAT(shown({"hello", 0, 6,
                       "\x1b"
                       "f",
                       "\x1b"
                       "c",
                       "\x1b"
                       "t"}),
                Not(HasSubstr("\x1b")));
}

TEST_F(Console, WritesToStandardErrorWhenToldSo) {
    const Pipe output;
    const Pipe error;
    const Redirected first(STDOUT_FILENO, output.input());
    const Redirected second(STDERR_FILENO, error.input());
    load(target("stream=stderr"));
    log({"hello"});
    EXPECT_EQ(output.read(), "");
    EXPECT_EQ(error.read(), kPlain);
}

TEST_F(Console, TimesAreThoseThatAreAskedFor) {
    EXPECT_EQ(shown("time=clock", {{"hello"}}), kPlain);
    EXPECT_EQ(shown("time=none", {{"hello"}}), "INFO   net      main       hello\n");
}

TEST_F(Console, TimesWithDateAndZoneAreLocalOnes) {
    setenv("TZ", "EST5", 1);
    EXPECT_EQ(shown("time=iso", {{"hello"}}), "2024-02-29T08:04:05.000042-05:00 INFO   net      main       hello\n");
}

TEST_F(Console, RelativeTimesCountFromTheFirstMessage) {
    EXPECT_EQ(shown("time=relative", {at(100, 999999), at(101, 0), at(1100, 999999), at(90, 0), at(90, 5)}),
              "     0.000000 INFO   net      main       hello\n"
              "     0.000001 INFO   net      main       hello\n"
              "  1000.000000 INFO   net      main       hello\n"
              "     0.000000 INFO   net      main       hello\n" // the clock was set back
              "     0.000005 INFO   net      main       hello\n");
}

TEST_F(Console, EachLevelHasItsColour) {
    EXPECT_EQ(shown("colour=always", {{"hello"}}), kColoured);
    EXPECT_THAT(shown("colour=always", {{"hello", 0, 0}}), HasSubstr(" \x1b[1;31mEMERG  \x1b[0mnet "));
    EXPECT_THAT(shown("colour=always", {{"hello", 0, 3}}), HasSubstr(" \x1b[31mERROR  \x1b[0mnet "));
    EXPECT_THAT(shown("colour=always", {{"hello", 0, 8}}), HasSubstr(" \x1b[90mTRACE  \x1b[0mnet "));
    EXPECT_THAT(shown("colour=always", {{"hello", 0, 32}}), HasSubstr(" \x1b[0m32     \x1b[0mnet "));
}

TEST_F(Console, APipeHasNoColours) {
    setenv("TERM", "xterm", 1);
    EXPECT_EQ(shown("colour=auto", {{"hello"}}), kPlain);
}

TEST_F(Console, ATerminalHasColours) {
    setenv("TERM", "xterm", 1);
    setenv("NO_COLOR", "", 1);
    EXPECT_EQ(shownOnTerminal(), kColoured);
}

TEST_F(Console, ATerminalHasNoColoursWhenItIsToldSo) {
    setenv("TERM", "xterm", 1);
    EXPECT_EQ(shownOnTerminal("colour=never"), kPlain);
}

TEST_F(Console, ATerminalThatIsDumbHasNoColours) {
    setenv("TERM", "dumb", 1);
    EXPECT_EQ(shownOnTerminal(), kPlain);
}

TEST_F(Console, ATerminalWithoutANameHasNoColours) {
    EXPECT_EQ(shownOnTerminal(), kPlain);
}

TEST_F(Console, NoColorIsObeyed) {
    setenv("TERM", "xterm", 1);
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(shownOnTerminal(), kPlain);
}

TEST_F(Console, LinesForTheJournalHaveAPriorityAndNoTime) {
    const Connection journal;
    struct stat status = {};
    ASSERT_EQ(fstat(journal.input(), &status), 0);
    setenv("JOURNAL_STREAM", (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
    const Redirected redirected(STDERR_FILENO, journal.input());
    load(target("stream=stderr"));
    log({"a", 0, 3});
    log({"b", 0, 8});
    EXPECT_EQ(journal.read(), "<3>ERROR  net      main       a\n<7>TRACE  net      main       b\n");
    unload();
    load(target("stream=stderr,time=clock"));
    log({"hello"});
    EXPECT_EQ(journal.read(), std::string("<6>") + kPlain);
}

TEST_F(Console, LinesForAnotherStreamThanTheJournalsHaveNoPriority) {
    const Connection connection;
    setenv("JOURNAL_STREAM", "8:4711", 1);
    const Redirected redirected(STDERR_FILENO, connection.input());
    load(target("stream=stderr"));
    log({"hello"});
    EXPECT_EQ(connection.read(), kPlain);
}

TEST_F(Console, WrongParametersAreRefused) {
    expectRefusal("stream=stdin", "\"stream\": \"stdin\" is none of stdout, stderr");
    expectRefusal("colour=red", "\"colour\": \"red\" is none of auto, always, never");
    expectRefusal("time=later", "\"time\": \"later\" is none of clock, iso, relative, none");
    expectRefusal("wait=60001", "\"wait\": \"60001\" is not a number from 0 to 60000");
    expectRefusal("color=auto", "\"color\": \"auto\" is given to a parameter that does not exist");
}
