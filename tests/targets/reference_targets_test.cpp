// The log targets of targets/, loaded as an application loads them.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::HasSubstr;

namespace {

// One of the standard streams goes into a file as long as this exists.
class StreamToFile {
public:
    StreamToFile(int stream, const std::string& path) : m_stream(stream), m_saved(dup(stream)) {
        const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        dup2(fd, stream);
        close(fd);
    }
    StreamToFile(const StreamToFile&) = delete;
    StreamToFile& operator=(const StreamToFile&) = delete;
    ~StreamToFile() {
        dup2(m_saved, m_stream);
        close(m_saved);
    }

private:
    int m_stream;
    int m_saved;
};

class ReferenceTargets : public ContainerFixture {
protected:
    ReferenceTargets() {
        setenv("TZ", "UTC", 1);
        files().write("out", "");
    }

    // Logs one message, on the last day of February, to the target of a line.
    void logTo(const std::string& targetLine, const std::string& text, int depth = 0, int numeric = 6,
               const std::string& functionName = "") {
        configure("target=" + targetLine + "\n");
        sorrel::CLogTargetContainer container(directory(), false, nullptr);
        container.onCfgUpdate();
        sorrel_level level = {numeric, 0x40};
        container.log(1, depth, 1709211845, 42, &level, "main", "net", functionName, text);
    }

    std::string shownOnConsole(const std::string& text, int depth = 0, int numeric = 6,
                               const std::string& functionName = "") {
        const StreamToFile redirected(STDOUT_FILENO, files().file("out"));
        logTo(SORREL_TEST_TARGET_DIR "/sorrel-console.so", text, depth, numeric, functionName);
        return files().read("out");
    }

    std::string fileTarget(const std::string& file) {
        return SORREL_TEST_TARGET_DIR "/sorrel-file.so"
                                      ", file=" +
               files().file(file);
    }
};

} // namespace

TEST_F(ReferenceTargets, TheConsoleShowsTimeLevelComponentThreadAndText) {
    EXPECT_EQ(shownOnConsole("hello"), "13:04:05.000042 INFO   net      main       hello\n");
}

TEST_F(ReferenceTargets, TheConsoleIndentsByDepthAndNamesTheFunction) {
    EXPECT_EQ(shownOnConsole("hello", 2, 7, "poll"), "13:04:05.000042 DEBUG  net      main           [poll] hello\n");
}

TEST_F(ReferenceTargets, ANegativeDepthIsNotIndented) {
    EXPECT_EQ(shownOnConsole("hello", -3), "13:04:05.000042 INFO   net      main       hello\n");
}

TEST_F(ReferenceTargets, ALevelWithoutANameIsShownAsItsNumber) {
    EXPECT_EQ(shownOnConsole("hello", 0, 32), "13:04:05.000042 32     net      main       hello\n");
    files().write("out", "");
    EXPECT_EQ(shownOnConsole("hello", 0, -1), "13:04:05.000042 -1     net      main       hello\n");
}

TEST_F(ReferenceTargets, ControlCharactersAreEscapedAndUtf8IsKept) {
    EXPECT_THAT(shownOnConsole("a\nb\tc\x1b[2J\x7f"), HasSubstr(" a\\nb\\tc\\x1b[2J\\x7f\n"));
    EXPECT_THAT(shownOnConsole("\xc3\xa9 \xc2\xb0 \xc2\x9b"), HasSubstr(" \xc3\xa9 \xc2\xb0 \xc2\\x9b\n"));
}

TEST_F(ReferenceTargets, TheConsoleWritesToStderrWhenToldSo) {
    const StreamToFile redirected(STDERR_FILENO, files().file("out"));
    logTo(SORREL_TEST_TARGET_DIR "/sorrel-console.so"
                                 ", stream=stderr",
          "hello");
    EXPECT_THAT(files().read("out"), HasSubstr(" hello\n"));
}

TEST_F(ReferenceTargets, TheFileTargetAppendsLinesWithTheDate) {
    files().write("app.log", "before\n");
    logTo(fileTarget("app.log"), "hello");
    EXPECT_EQ(files().read("app.log"), "before\n2024-02-29 13:04:05.000042 INFO   net      main       hello\n");
}

TEST_F(ReferenceTargets, TheFileTargetMakesAFileThatOthersCannotRead) {
    umask(0);
    logTo(fileTarget("app.log"), "hello");
    struct stat status {};
    ASSERT_EQ(stat(files().file("app.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(ReferenceTargets, TheFileTargetIsRefusedWithoutAFile) {
    logTo(SORREL_TEST_TARGET_DIR "/sorrel-file.so", "hello");
    EXPECT_TRUE(diagnostics().has("file-target: the parameter \"file\" is missing"));
    EXPECT_TRUE(diagnostics().has("logtarget-container: Unable to create LogTarget from lib \"" SORREL_TEST_TARGET_DIR
                                  "/sorrel-file.so"
                                  "\""));
}

TEST_F(ReferenceTargets, TheFileTargetIsRefusedWhenTheFileCannotBeOpened) {
    logTo(fileTarget("missing/app.log"), "hello");
    EXPECT_TRUE(diagnostics().has("file-target: parameter \"file\": \"" + files().file("missing/app.log") +
                                  "\" cannot be opened: No such file or directory"));
}

TEST_F(ReferenceTargets, AParameterThatDoesNotExistRefusesTheTarget) {
    logTo(fileTarget("app.log") + ", flie=twice", "hello");
    EXPECT_TRUE(
        diagnostics().has("file-target: parameter \"flie\": \"twice\" is given to a parameter that does not exist"));
    EXPECT_EQ(files().read("app.log"), "");
}

TEST_F(ReferenceTargets, TheConsoleRefusesAnotherStream) {
    logTo(SORREL_TEST_TARGET_DIR "/sorrel-console.so"
                                 ", stream=stdin",
          "hello");
    EXPECT_TRUE(diagnostics().has("console-target: parameter \"stream\": \"stdin\" is none of stdout, stderr"));
}

TEST_F(ReferenceTargets, TheTargetsAreUnloadedForGood) {
    for (const std::string& line : {std::string(SORREL_TEST_TARGET_DIR "/sorrel-console.so"), fileTarget("app.log")}) {
        configure("target=" + line + "\n");
        sorrel::CLogTargetContainer container(directory(), false, nullptr);
        container.onCfgUpdate();
        const std::string library = line.substr(0, line.find(','));
        EXPECT_TRUE(isLibraryOpen(library));
        configure("component=net, 1\n");
        container.onCfgUpdate();
        EXPECT_FALSE(isLibraryOpen(library));
    }
}
