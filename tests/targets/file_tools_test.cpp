// The file target beside the tools that people use with its files, set up as targets/ shows it: logrotate and lnav.
#include "line_target_fixture.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using testing::ElementsAre;

namespace {

class FileTools : public LineTargetFixture {
protected:
    FileTools() { setenv("HOME", files().path().c_str(), 1); }

    static std::string shipped(const std::string& file) {
        std::ostringstream text;
        text << std::ifstream(SORREL_TEST_TARGET_FILES "/" + file).rdbuf();
        return text.str();
    }

    // Runs a command and returns what it prints, also as errors. It has to end well.
    std::string outputOf(const std::string& command) {
        const int status = std::system(("exec </dev/null >" + files().file("output") + " 2>&1; " + command).c_str());
        EXPECT_EQ(status, 0) << command << "\n" << textOf("output");
        return textOf("output");
    }

    // Rotates now, whenever that was done before.
    void rotate() {
        EXPECT_EQ(
            outputOf("/usr/sbin/logrotate --force --state " + files().file("state") + " " + files().file("rotation")),
            "");
    }

    void sayInSecond(const char* text, long long second) { log({text, 0, 6, "", "net", "main", kLeapDay + second}); }

    // What lnav finds in the file as SQL columns, a line each with commas between them.
    std::string found(const std::string& columns, const std::string& format) {
        return outputOf("lnav -n -q -I " + files().path() + " -c ';SELECT " + columns + " FROM " + format +
                        "' -c ':write-csv-to -' " + files().file("app.log"));
    }

    void installFormat() {
        std::filesystem::create_directories(files().file("formats/sorrel"));
        files().write("formats/sorrel/sorrel.json", shipped("lnav/sorrel.json"));
    }
};

} // namespace

TEST_F(FileTools, LogrotateTakesTheFileFromARunningProcess) {
    std::string rotation = shipped("logrotate.conf");
    const std::string path = "/var/log/app.log";
    ASSERT_NE(rotation.find(path), std::string::npos);
    files().write("rotation", rotation.replace(rotation.find(path), path.size(), files().file("app.log")));
    load(fileTarget());
    sayInSecond("a", 0);
    rotate();
    sayInSecond("b", 0); // in the second in which it was looked after
    sayInSecond("c", 1);
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre("a", "b"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("c"));
    rotate();
    sayInSecond("d", 2);
    EXPECT_THAT(linesOf(outputOf("zcat " + files().file("app.log.2.gz") + " | wc -l")), ElementsAre("2"));
    EXPECT_THAT(textsIn("app.log.1"), ElementsAre("c"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("d"));
}

TEST_F(FileTools, LnavTakesTheFormats) {
    installFormat();
    EXPECT_EQ(outputOf("lnav -W -C -I " + files().path()), "");
}

TEST_F(FileTools, LnavReadsTheLines) {
    installFormat();
    load(fileTarget());
    log({"hello", 0, 3});
    log({"it's, \"quoted\"\nand more", 2, 7, "poll", "ui", "worker-1", kLeapDay + 1});
    log({"nameless", 1, 6, "poll", "net", "<no name>", kLeapDay + 2});
    EXPECT_THAT(linesOf(found("log_time, log_level, component, thread, function, log_body", "sorrel_text")),
                ElementsAre("log_time,log_level,component,thread,function,log_body",
                            "2024-02-29 13:04:05.000,error,net,main,<NULL>,hello",
                            "2024-02-29 13:04:06.000,debug,ui,worker-1,poll,\"it's, \"\"quoted\"\"\\nand more\"",
                            "2024-02-29 13:04:07.000,info,net,<no name>,poll,nameless"));
}

TEST_F(FileTools, LnavReadsTheObjects) {
    installFormat();
    load(fileTarget("format=json"));
    log({"hello", 0, 3});
    log({"it's, \"quoted\"", 2, 7, "poll", "ui", "worker 1", kLeapDay + 1});
    const std::string pid = std::to_string(getpid());
    EXPECT_THAT(linesOf(found("log_time, log_level, pid, thread, component, depth, function, log_body", "sorrel_json")),
                ElementsAre("log_time,log_level,pid,thread,component,depth,function,log_body",
                            "2024-02-29 13:04:05.000,error," + pid + ",main,net,0,,hello",
                            "2024-02-29 13:04:06.000,debug," + pid + ",worker 1,ui,2,poll,\"it's, \"\"quoted\"\"\""));
}
