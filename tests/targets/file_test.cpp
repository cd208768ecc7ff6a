// The file target: its lines, its parameters, and which files it takes.
#include "child_process.hpp"
#include "line_target_fixture.hpp"
#include "proc_self.hpp"
#include "watchdog.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class File : public LineTargetFixture {
protected:
    mode_t modeOf(const std::string& file) {
        struct stat status = {};
        EXPECT_EQ(stat(files().file(file).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    bool isLoaded() { return isLibraryOpen(targetPath("file")); }

    // Of the target.
    int descriptor() {
        int number = -1;
        for (const auto& descriptor : openDescriptors()) {
            number = descriptor.second == files().file("app.log") ? descriptor.first : number;
        }
        return number;
    }

    // Closes the target's descriptor, as a daemon does with all that it has, and gives its number to another file.
    int takeDescriptor() {
        const int number = descriptor();
        const int foreign = open(files().file("foreign").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(dup3(foreign, number, O_CLOEXEC), number);
        close(foreign);
        return number;
    }

    // Expects that a target line is refused with this diagnostic, which names the target.
    void expectRefusal(const std::string& target, const std::string& why) {
        load(target);
        EXPECT_TRUE(diagnostics().has("file-target: " + why)) << why;
        EXPECT_FALSE(isLoaded());
    }

    void expectRefusalOf(const std::string& parameter, const std::string& value, const std::string& why) {
        expectRefusal(fileTarget(parameter + "=" + value), "parameter \"" + parameter + "\": \"" + value + "\" " + why);
    }

    std::string lineOf(const TestMessage& message) {
        files().write("app.log", "");
        load(fileTarget());
        log(message);
        return textOf("app.log");
    }
};

} // namespace

TEST_F(File, AppendsLinesWithTheDate) {
    files().write("app.log", "before\n");
    load(fileTarget());
    log({"hello"});
    EXPECT_EQ(textOf("app.log"), "before\n2024-02-29 13:04:05.000042 INFO   net      main       hello\n");
}

TEST_F(File, IndentsByDepthAndNamesTheFunction) {
    EXPECT_EQ(lineOf({"hello", 2, 7, "poll"}),
              "2024-02-29 13:04:05.000042 DEBUG  net      main           [poll] hello\n");
}

TEST_F(File, ANegativeDepthIsNotIndented) {
    EXPECT_THAT(lineOf({"hello", -3}), EndsWith(" main       hello\n"));
}

TEST_F(File, NamesThatAreTooLongForTheirColumnMoveTheRest) {
    EXPECT_THAT(lineOf({"hello", 0, 6, "", "a-long-component", "a-long-thread-name"}),
                EndsWith(" INFO   a-long-component a-long-thread-name hello\n"));
}

TEST_F(File, ColumnsAreAsWideAsTheirCharactersAndNotTheirBytes) {
    EXPECT_THAT(lineOf({"hello", 0, 6, "", "n\xc3\xa4h", "\xe2\x82\xac"}),
                EndsWith(" INFO   n\xc3\xa4h      \xe2\x82\xac          hello\n"));
}

TEST_F(File, ATextOfSeveralLinesBecomesOneLine) {
    EXPECT_THAT(lineOf({"a\nb\tc\x1b[2J\x7f"}), EndsWith(" a\\nb\\tc\\x1b[2J\\x7f\n"));
    EXPECT_THAT(lineOf({"\xc3\xa9 \xc2\xb0 \xc2\x9b"}), EndsWith(" \xc3\xa9 \xc2\xb0 \\xc2\\x9b\n"));
    EXPECT_THAT(lineOf({"hello", 0, 6, "f\ng", "c\nd", "t\nu"}), HasSubstr("c\\nd     t\\nu       [f\\ng] hello"));
}

TEST_F(File, EmptyLongAndBrokenTextsAreWrittenAsTheyAre) {
    EXPECT_THAT(lineOf({""}), EndsWith(" main       \n"));
    EXPECT_THAT(lineOf({std::string(2047, 'x')}), EndsWith(" " + std::string(2047, 'x') + "\n"));
    EXPECT_THAT(lineOf({"\xff\xc3"}), EndsWith(" \xff\xc3\n"));
}

TEST_F(File, ALevelWithoutANameIsShownAsItsNumber) {
    EXPECT_THAT(lineOf({"hello", 0, 32}), HasSubstr(" 32     net "));
    EXPECT_THAT(lineOf({"hello", 0, -1}), HasSubstr(" -1     net "));
}

TEST_F(File, NoLineIsIndentedByMoreThanAHundredFunctions) {
    const std::string text = std::string(200, ' ') + "hello\n";
    EXPECT_EQ(lineOf({"hello", 1000}), "2024-02-29 13:04:05.000042 INFO   net      main       " + text);
    unload();
    load(fileTarget("format=json", "app.json"));
    log({"hello", 1000});
    EXPECT_THAT(textOf("app.json"), HasSubstr(",\"depth\":1000,"));
}

TEST_F(File, WritesAnObjectALineAsJson) {
    setenv("TZ", "CET-1", 1);
    load(fileTarget("format=json"));
    log({"a \"quoted\"\ntext \xff", 2, 4, "poll", "net", "worker\t1"});
    log({"", -1, 32});
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(textOf("app.log"),
              "{\"time\":\"2024-02-29T14:04:05.000042+01:00\",\"pid\":" + pid +
                  ",\"thread\":\"worker\\u00091\",\"level\":\"WARN\",\"component\":\"net\",\"depth\":2,"
                  "\"function\":\"poll\",\"text\":\"a \\\"quoted\\\"\\u000atext \\ufffd\"}\n"
                  "{\"time\":\"2024-02-29T14:04:05.000042+01:00\",\"pid\":" +
                  pid +
                  ",\"thread\":\"main\",\"level\":\"32\",\"component\":\"net\",\"depth\":-1,\"function\":\"\","
                  "\"text\":\"\"}\n");
}

TEST_F(File, OthersCannotReadIt) {
    umask(0);
    load(fileTarget());
    EXPECT_EQ(modeOf("app.log"), 0640U);
}

TEST_F(File, TheModeIsAParameterInOctalDigits) {
    umask(0);
    load(fileTarget("mode=0604"));
    EXPECT_EQ(modeOf("app.log"), 0604U);
}

TEST_F(File, IsRefusedWithoutAFile) {
    expectRefusal(targetPath("file"), "the parameter \"file\" is missing");
    EXPECT_TRUE(
        diagnostics().has("logtarget-container: Unable to create LogTarget from lib \"" + targetPath("file") + "\""));
}

TEST_F(File, IsRefusedWhenTheFileCannotBeOpened) {
    expectRefusal(fileTarget("", "missing/app.log"), "parameter \"file\": \"" + files().file("missing/app.log") +
                                                         "\" cannot be opened: No such file or directory");
}

TEST_F(File, ASymbolicLinkIsRefused) {
    files().write("secret", "");
    ASSERT_EQ(symlink(files().file("secret").c_str(), files().file("app.log").c_str()), 0);
    expectRefusal(fileTarget(), "parameter \"file\": \"" + files().file("app.log") +
                                    "\" cannot be opened: Too many levels of symbolic links");
}

TEST_F(File, APipeIsRefusedWithoutWaitingForItsReader) {
    const Watchdog watchdog;
    ASSERT_EQ(mkfifo(files().file("app.log").c_str(), 0600), 0);
    const std::string why =
        "parameter \"file\": \"" + files().file("app.log") + "\" cannot be opened: it is not a regular file";
    expectRefusal(fileTarget(), why);
    diagnostics().clear();
    const int reader = open(files().file("app.log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    expectRefusal(fileTarget(), why);
    close(reader);
}

TEST_F(File, ADirectoryIsRefused) {
    expectRefusal(fileTarget("", ""),
                  "parameter \"file\": \"" + files().file("") + "\" cannot be opened: Is a directory");
}

TEST_F(File, WrongParametersAreRefused) {
    expectRefusalOf("flie", "twice", "is given to a parameter that does not exist");
    expectRefusalOf("format", "xml", "is none of text, json");
    expectRefusalOf("flush", "never", "is neither \"always\" nor a level");
    expectRefusalOf("max_files", "0", "is not a number from 1 to 999");
    expectRefusalOf("wait", "60001", "is not a number from 0 to 60000");
    for (const char* mode : {"0648", "1000", "-1", "x", "0640x"}) {
        expectRefusalOf("mode", mode, "is not an octal number up to 777");
    }
    for (const char* size : {"k", "1kk", "1K", "-1", "0x10", "9000000000G", "9223372036854775808"}) {
        expectRefusalOf("max_size", size, "is not a number of bytes from 0 to 9223372036854775807");
    }
}

TEST_F(File, ARefusedParameterLeavesNoFileBehind) {
    expectRefusalOf("format", "xml", "is none of text, json");
    EXPECT_FALSE(exists("app.log"));
    expectRefusalOf("flie", "twice", "is given to a parameter that does not exist");
    EXPECT_FALSE(exists("app.log"));
}

TEST_F(File, LevelsAndComponentsAreChosen) {
    load(fileTarget("components=ui*,conf=" + files().file("more")));
    EXPECT_FALSE(isLoaded()); // there is no such file
    files().write("more", "flush = err\n");
    load(fileTarget("components=ui*,conf=" + files().file("more")));
    log({"a", 0, 3, "", "net"});
    log({"b", 0, 6, "", "ui.menu"});
    EXPECT_THAT(textsIn("app.log"), IsEmpty());
    log({"c", 0, 3, "", "ui"});
    EXPECT_THAT(textsIn("app.log"), ElementsAre("b", "c"));
}

TEST_F(File, ASecondPathOfTheLibraryIsATargetOfItsOwn) {
    std::filesystem::copy_file(targetPath("file"), files().file("second.so"));
    load(fileTarget("flush=err") + "\ntarget=" + files().file("second.so") + ",file=" + files().file("second.log"));
    log({"one"});
    EXPECT_THAT(textsIn("app.log"), IsEmpty());
    EXPECT_THAT(textsIn("second.log"), ElementsAre("one"));
    unload();
    EXPECT_THAT(textsIn("app.log"), ElementsAre("one"));
}

TEST_F(File, IsOpenedAgainWhenTheProcessHasClosedItsDescriptor) {
    for (const char* parameters : {"", "max_size=1k"}) {
        load(fileTarget(parameters));
        log({"a"});
        close(descriptor());
        log({"b"});
        EXPECT_THAT(textsIn("app.log"), ElementsAre("a", "b"));
        unload();
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(File, ItsNumberIsNotSoonThatOfAnotherFile) {
    load(fileTarget());
    EXPECT_GE(descriptor(), 1000);
}

TEST_F(File, AHighNumberOfAnotherFileIsNoticedInTheNextSecond) {
    load(fileTarget());
    log({"a"});
    const int foreign = takeDescriptor();
    log({"b", 0, 6, "", "net", "main", kLeapDay + 1});
    unload();
    EXPECT_THAT(textsIn("app.log"), ElementsAre("a", "b"));
    EXPECT_EQ(textOf("foreign"), "");
    EXPECT_EQ(close(foreign), 0); // which nobody else has closed
}

TEST_F(File, ALowNumberOfAnotherFileIsNoticedAtOnce) {
    const rlimit few = {100, 100};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    for (const char* parameters : {"", "max_size=1k", "flush=err"}) {
        load(fileTarget(parameters));
        log({"a", 0, 3});
        const int foreign = takeDescriptor();
        log({"b"});
        unload();
        EXPECT_THAT(textsIn("app.log"), ElementsAre("a", "b"));
        EXPECT_EQ(textOf("foreign"), "");
        EXPECT_EQ(close(foreign), 0);
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(File, ALateUnloadClosesNoOtherFileOfTheProcess) {
    load(fileTarget());
    const int foreign = takeDescriptor();
    unload();
    EXPECT_EQ(close(foreign), 0);
}

TEST_F(File, AChildThatHasOtherFilesUnderItsNumbersLeavesThemAlone) {
    load(fileTarget());
    log({"a"});
    EXPECT_TRUE(passesInChild([this] {
        const int foreign = takeDescriptor();
        log({"b"});
        return textOf("foreign").empty() && close(foreign) == 0;
    }));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("a", "b"));
}
