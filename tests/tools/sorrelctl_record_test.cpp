// sorrelctl record, run as people run it, on rings that a recorder has written.
#include "sorrelctl_fixture.hpp"

#include <gmock/gmock.h>
#include <sorrelctl/record_filter.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class SorrelctlRecord : public SorrelctlFixture {
protected:
    // The texts that "record export" gives with these options.
    std::vector<std::string> chosen(const std::string& options) {
        const Result result = record("export " + path("ring") + " " + options);
        EXPECT_EQ(result.status, 0) << result.err;
        std::vector<std::string> texts;
        std::istringstream lines(result.out);
        for (std::string line; std::getline(lines, line);) {
            const std::string::size_type begin = line.find("\"text\":\"") + 8;
            texts.push_back(line.substr(begin, line.size() - begin - 2));
        }
        return texts;
    }

    // Those of a track, in the lines of a trace.
    static std::vector<std::string> eventsIn(const std::string& trace) {
        std::vector<std::string> events;
        std::istringstream lines(trace);
        for (std::string line; std::getline(lines, line);) {
            if (line.find("{\"ph\":") == 0 && line.find("process_name") == std::string::npos) {
                events.push_back(line.substr(0, line.rfind('}')));
            }
        }
        return events;
    }

    static constexpr const char* kText =
        "2024-02-29 13:03:30.000005 TRACE  net      main       [poll] entering\n"
        "2024-02-29 13:03:40.000005 INFO   net      main         [poll] first\\tline\n"
        "2024-02-29 13:03:50.000005 ERROR  disk     worker     second \"quoted\" line\n"
        "2024-02-29 13:04:00.000005 TRACE  net      main       [poll] leaving\n"
        "2024-02-29 13:04:10.000005 WARN   ui.menu  main       last\n";
};

} // namespace

TEST_F(SorrelctlRecord, ShowWritesWhatIsKnownAndTheMessages) {
    const Result result = record("show " + path("ring"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith("# " + path("ring") + ": process " + std::to_string(getpid()) +
                                       ", application player, ended in order\n# since "));
    EXPECT_THAT(result.out, HasSubstr("\n# messages: 1 to 5, the last 5\n" + std::string(kText)));
}

TEST_F(SorrelctlRecord, ExportWritesJsonLines) {
    const Result result = record("export --last 2 " + path("ring"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "{\"time\":\"2024-02-29T13:04:00.000005+00:00\",\"pid\":4711,\"thread\":\"main\",\"level\":\"TRACE\","
              "\"component\":\"net\",\"depth\":0,\"function\":\"poll\",\"text\":\"leaving\"}\n"
              "{\"time\":\"2024-02-29T13:04:10.000005+00:00\",\"pid\":4711,\"thread\":\"main\",\"level\":\"WARN\","
              "\"component\":\"ui.menu\",\"depth\":0,\"function\":\"\",\"text\":\"last\"}\n");
}

TEST_F(SorrelctlRecord, FormatsAreChosen) {
    EXPECT_EQ(record("export --format text " + path("ring")).out, kText);
    EXPECT_THAT(record("show --format json --last 1 " + path("ring")).out,
                HasSubstr("\n{\"time\":\"2024-02-29T13:04:10"));
    EXPECT_EQ(record("show --format xml " + path("ring")).status, 2);
}

TEST_F(SorrelctlRecord, ATraceHasSpansAndInstants) {
    const std::string name = ",\n{\"ph\":\"M\",\"pid\":4711,\"tid\":" + std::to_string(gettid()) + ",\"name\":";
    const auto event = [name](char phase) { return std::string(name).replace(name.find('M'), 1, 1, phase); };
    const Result result = record("export --format trace --component net --level 'all' " + path("ring"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "{\"traceEvents\":[\n{\"ph\":\"M\",\"pid\":" + std::to_string(getpid()) +
                              ",\"tid\":0,\"name\":\"process_name\",\"args\":{\"name\":\"player\"}}" + event('M') +
                              "\"thread_name\",\"args\":{\"name\":\"main\"}}" + event('B') +
                              "\"poll\",\"ts\":1709211810000005,\"cat\":\"net\"}" + event('i') +
                              "\"first\\u0009line\",\"ts\":1709211820000005,\"s\":\"t\",\"cat\":\"net\",\"args\":{"
                              "\"level\":\"INFO\",\"component\":\"net\",\"function\":\"poll\",\"depth\":1}}" +
                              event('E') + "\"poll\",\"ts\":1709211840000005}\n]}\n");
}

TEST_F(SorrelctlRecord, ATraceIsWhatTheTraceTargetWrites) {
    configure("target=" + library() + ",file=" + path("both") +
              ",size=64k\ntarget=" SORREL_TEST_TARGET_DIR "/sorrel-trace.so,file=" + path("%p.json") + "\n");
    sorrel::CLogTargetContainer container(directory(), false, nullptr);
    container.onCfgUpdate();
    say(container, 1, 8, 0, "main", "net", "outer", "entering"); // and inner, unseen
    say(container, 2, 8, 1, "main", "net", "inner", "leaving");
    say(container, 3, 6, 1, "main", "net", "outer", "still in outer");
    say(container, 4, 8, 0, "main", "net", "outer", "leaving");
    say(container, 5, 8, 0, "main", "net", "lost", "entering"); // and left, unseen
    say(container, 6, 31, 0, "main", "net", "", "outside again");
    say(container, 7, 6, 0, "main", "net", "", "outside much later");
    const std::vector<std::string> events = eventsIn(files().read("4711.json"));
    EXPECT_EQ(eventsIn(record("export --format trace " + path("both")).out), events);
    EXPECT_THAT(events, testing::SizeIs(9));
}

TEST_F(SorrelctlRecord, SpansOfATraceAreBalanced) {
    const Result open = record("export --format trace --grep entering " + path("ring"));
    EXPECT_THAT(open.out, HasSubstr("\"ph\":\"E\""));
    const Result close = record("export --format trace --grep leaving " + path("ring"));
    EXPECT_THAT(close.out, Not(HasSubstr("\"ph\":\"E\"")));
    EXPECT_THAT(close.out, HasSubstr("\"name\":\"leaving\""));
    const std::string none = "\n{\"ph\":\"M\",\"pid\":" + std::to_string(getpid()) +
                             ",\"tid\":0,\"name\":\"process_name\",\"args\":{\"name\":\"player\"}}\n";
    EXPECT_EQ(record("export --format trace --grep nowhere " + path("ring")).out, "{\"traceEvents\":[" + none + "]}\n");
    EXPECT_EQ(record("export --format trace " + path("missing")).out, "{\"traceEvents\":[]}\n");
}

TEST_F(SorrelctlRecord, AFunctionThatIsOpenAtTheEndOfAFileEndsThere) {
    const Result result = record("export --format trace --grep entering " + path("ring") + " " + path("ring"));
    std::string phases;
    for (std::size_t at = result.out.find("\"ph\":\""); at != std::string::npos;
         at = result.out.find("\"ph\":\"", at + 1)) {
        phases += result.out[at + 6];
    }
    EXPECT_EQ(phases, "MMBEMMBE");
}

TEST_F(SorrelctlRecord, MessagesAreChosen) {
    EXPECT_THAT(chosen("--level err"), ElementsAre("second \\\"quoted\\\" line"));
    EXPECT_THAT(chosen("--level 'upto:warning'"), ElementsAre("second \\\"quoted\\\" line", "last"));
    EXPECT_THAT(chosen("--level 'all;-enterleave' --last 1"), ElementsAre("last"));
    EXPECT_THAT(chosen("--component 'ui*;disk'"), ElementsAre("second \\\"quoted\\\" line", "last"));
    EXPECT_THAT(chosen("--thread worker"), ElementsAre("second \\\"quoted\\\" line"));
    EXPECT_THAT(chosen("--function 'p*'"), ElementsAre("entering", "first\\u0009line", "leaving"));
    EXPECT_THAT(chosen("--grep '^(first|last)'"), ElementsAre("first\\u0009line", "last"));
    EXPECT_THAT(chosen("--grep '^(first|last)' --component ui.menu"), ElementsAre("last"));
    EXPECT_THAT(chosen("--last 0"), IsEmpty());
    EXPECT_THAT(chosen("--last 99"), testing::SizeIs(5));
}

TEST_F(SorrelctlRecord, ATextIsSearchedToItsEndAndNoFurther) {
    const std::vector<char> text = {'a', 'b', '\0', 'c'}; // and nothing behind it, as at the end of a file
    EXPECT_TRUE(sorrelctl::Regex("c$").isFoundIn({text.data(), text.size()}));
    EXPECT_TRUE(sorrelctl::Regex("^a").isFoundIn({text.data(), text.size()}));
    EXPECT_FALSE(sorrelctl::Regex("b").isFoundIn({text.data(), 1}));
}

TEST_F(SorrelctlRecord, TimesAreWrittenInManyWays) {
    EXPECT_THAT(chosen("--since 10s"), ElementsAre("leaving", "last"));
    EXPECT_THAT(chosen("--since 1m"), testing::SizeIs(5));
    EXPECT_THAT(chosen("--since 0h"), ElementsAre("last"));
    EXPECT_THAT(chosen("--since 1d"), testing::SizeIs(5));
    EXPECT_THAT(chosen("--since @1709211850"), ElementsAre("last"));
    EXPECT_THAT(chosen("--since '2024-02-29 13:04:00'"), ElementsAre("leaving", "last"));
    EXPECT_THAT(chosen("--since '2024-02-29T13:04:00.000006'"), ElementsAre("last"));
    EXPECT_THAT(chosen("--since '2024-02-29 13:04'"), ElementsAre("leaving", "last"));
    EXPECT_THAT(chosen("--since 2024-03-01"), IsEmpty());
    EXPECT_THAT(chosen("--since 2024-02-29"), testing::SizeIs(5));
}

TEST_F(SorrelctlRecord, InfoShowsTheComponentsAndNoMessage) {
    const Result result = record("show --info " + path("ring"));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("# components: 3 of at most 16\n"
                                      "#   net: messages 3, mask unknown\n"
                                      "#   disk: messages 1, mask unknown\n"
                                      "#   ui.menu: messages 1, mask unknown\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("entering")));
}

TEST_F(SorrelctlRecord, ARunningProcessIsRecognised) {
    const Container container = openSmall("running");
    log(*container, "text");
    EXPECT_THAT(record("show " + path("running")).out, HasSubstr(", running\n"));
}

TEST_F(SorrelctlRecord, SeveralFilesFollowEachOther) {
    openSmall("other").reset();
    const Result result = record("show " + path("ring") + " " + path("other"));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("last\n# " + path("other") + ": process "));
    EXPECT_THAT(result.out, HasSubstr("# messages: none\n"));
}

TEST_F(SorrelctlRecord, AFileThatCannotBeReadIsToldAndTheOthersAreShown) {
    files().write("text", "no ring");
    const Result result =
        record("export --format text " + path("missing") + " " + path("text") + " /dev/null " + path("ring"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kText);
    EXPECT_EQ(result.err, "sorrelctl: " + path("missing") + ": cannot be opened: No such file or directory\n" +
                              "sorrelctl: " + path("text") + ": is no ring: it has 7 bytes, a header has 512\n" +
                              "sorrelctl: /dev/null: is no file\n");
}

TEST_F(SorrelctlRecord, ADamagedFileYieldsWhatIsWhole) {
    std::filesystem::resize_file(path("ring"), 4608 + 256);
    const Result result = record("export --format text " + path("ring"));
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, StartsWith("2024-02-29 13:03:30.000005 TRACE"));
    const std::string told = "sorrelctl: " + path("ring") + ": byte ";
    EXPECT_EQ(result.err, told + "4864: the file ends, the ring has 60672 bytes more\n" + told +
                              "136: 5 messages are counted, the newest whole one is number 3\n");
}

TEST_F(SorrelctlRecord, AWrongCommandLineIsExplained) {
    const std::string file = " " + path("ring");
    EXPECT_EQ(record("").status, 2);
    EXPECT_EQ(record("show").status, 2);
    EXPECT_EQ(record("show --nonsense" + file).status, 2);
    EXPECT_EQ(record("show --last x" + file).status, 2);
    const Result level = record("show --level eror" + file);
    EXPECT_EQ(level.status, 2);
    EXPECT_THAT(level.err, HasSubstr("--level: \"eror\" is no level"));
    for (const std::string option : {"--component", "--thread", "--function"}) {
        const Result name = record("show " + option + " ''" + file);
        EXPECT_EQ(name.status, 2) << option;
        EXPECT_THAT(name.err, HasSubstr(option + ": \"\" is no name")) << option;
    }
    const Result grep = record("show --grep '('" + file);
    EXPECT_EQ(grep.status, 2);
    EXPECT_THAT(grep.err, HasSubstr("--grep: \"(\" is no regular expression: "));
    for (const std::string time : {"x", "10", "10y", "-1s", "@", "@1x", "2024-02-29 13", "2024-02-29 13:04:05.x",
                                   "99999999999999999d", "2024-02-29 13:04:05.1234567"}) {
        const Result since = record("show --since '" + time + "'" + file);
        EXPECT_EQ(since.status, 2) << time;
        EXPECT_THAT(since.err, HasSubstr("--since: \"" + time + "\" is no time")) << time;
    }
}

TEST_F(SorrelctlRecord, HelpNamesTheStatuses) {
    const Result result = record("show --help");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("2 when the command line is wrong"));
    for (const char* const option : {"--format", "--level", "--component", "--thread", "--function", "--since",
                                     "--last", "--grep", "--info", "--all"}) {
        EXPECT_THAT(result.out, HasSubstr(option));
    }
}

TEST_F(SorrelctlRecord, AFullDiskIsToldAsAnError) {
    const int status = std::system(
        (std::string(SORREL_TEST_TOOL " record show ") + path("ring") + " > /dev/full 2> " + path("err")).c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(files().read("err"), "sorrelctl: standard output: No space left on device\n");
}
