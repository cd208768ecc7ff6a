// The file target, when its file was renamed or removed by others, or may not be opened any more.
#include "child_process.hpp"
#include "line_target_fixture.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class FileName : public LineTargetFixture {
protected:
    void sayInSecond(int second, const std::string& text) { log({text, 0, 6, "", "net", "main", kLeapDay + second}); }

    // Lines of more than 100 bytes.
    bool sayInTwoSeconds() {
        const std::string before = std::string(50, '-') + " ";
        sayInSecond(0, before + "1");
        sayInSecond(1, before + "2");
        sayInSecond(1, before + "3");
        sayInSecond(2, before + "4");
        return true;
    }
};

} // namespace

TEST_F(FileName, ARenamedFileIsNoticedInTheNextSecond) {
    load(fileTarget());
    log({"0"});
    move("app.log", "elsewhere");
    sayInSecond(1, "1");
    EXPECT_THAT(textsIn("elsewhere"), ElementsAre("0"));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("1"));
}

TEST_F(FileName, ARemovedFileIsMadeAgain) {
    for (const char* parameters : {"", "max_size=1k"}) {
        load(fileTarget(parameters));
        log({"0"});
        std::filesystem::remove(files().file("app.log"));
        sayInSecond(1, "1");
        EXPECT_THAT(textsIn("app.log"), ElementsAre("1"));
        unload();
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(FileName, ALinkThatTookTheFilesPlaceIsNeitherFollowedNorMoved) {
    for (const char* parameters : {"", "max_size=100"}) {
        load(fileTarget(parameters));
        log({"0"});
        move("app.log", "elsewhere");
        ASSERT_EQ(symlink(files().file("secret").c_str(), files().file("app.log").c_str()), 0);
        sayInSecond(1, "1");
        EXPECT_FALSE(exists("secret"));
        EXPECT_THAT(textsIn("elsewhere"), ElementsAre("0", "1"));
        EXPECT_TRUE(std::filesystem::remove(files().file("app.log")));
        sayInSecond(2, "2");
        EXPECT_THAT(textsIn("app.log"), ElementsAre("2"));
        unload();
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(FileName, ARemovedFileThatCannotBeMadeAgainIsALoss) {
    for (const char* parameters : {"", "max_size=1k"}) {
        std::filesystem::create_directories(files().file("inside"));
        load(fileTarget(parameters, "inside/app.log"));
        log({"0"});
        std::filesystem::remove_all(files().file("inside"));
        sayInSecond(1, "1");
        std::filesystem::create_directory(files().file("inside"));
        sayInSecond(2, "2");
        EXPECT_THAT(textOf("inside/app.log"), HasSubstr(" 1 message lost: No such file or directory\n"));
        EXPECT_THAT(textsIn("inside/app.log").back(), "2");
        unload();
        std::filesystem::remove(files().file("inside/app.log"));
    }
}

TEST_F(FileName, AProcessThatMayNotOpenTheFileAnyMoreKeepsIt) {
    for (const char* parameters : {"", "max_size=250"}) {
        load(fileTarget(parameters));
        log({"0"});
        EXPECT_TRUE(passesInChild([&] {
            return chmod(files().path().c_str(), 0700) == 0 && setgid(65534) == 0 && setuid(65534) == 0 &&
                   sayInTwoSeconds();
        }));
        EXPECT_THAT(textsIn("app.log"), ElementsAre("0", "1", "2", "3", "4"));
        unload();
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(FileName, ANewFileThatMayOnlyBeWrittenIsTaken) {
    load(fileTarget());
    log({"0"});
    move("app.log", "elsewhere");
    files().write("app.log", "");
    EXPECT_EQ(chmod(files().path().c_str(), 0755), 0);
    EXPECT_EQ(chmod(files().file("app.log").c_str(), 0222), 0);
    EXPECT_TRUE(passesInChild([&] { return setgid(65534) == 0 && setuid(65534) == 0 && sayInTwoSeconds(); }));
    EXPECT_THAT(textsIn("app.log"), ElementsAre("1", "2", "3", "4"));
}

TEST_F(FileName, AProcessThatGoesToAnotherDirectoryKeepsTheFile) {
    std::filesystem::create_directory(files().file("elsewhere"));
    for (const char* parameters : {"", ",max_size=1k"}) {
        EXPECT_TRUE(passesInChild([&] {
            std::filesystem::current_path(files().path());
            load(targetPath("file") + ",file=app.log" + parameters);
            std::filesystem::current_path("elsewhere");
            return sayInTwoSeconds();
        }));
        EXPECT_THAT(textsIn("app.log"), ElementsAre("1", "2", "3", "4"));
        EXPECT_TRUE(std::filesystem::is_empty(files().file("elsewhere")));
        std::filesystem::remove(files().file("app.log"));
    }
}

TEST_F(FileName, AProcessThatHasChangedItsRootKeepsTheFile) {
    std::filesystem::create_directory(files().file("root"));
    for (const char* parameters : {"", "max_size=250"}) {
        load(fileTarget(parameters));
        log({"0"});
        EXPECT_TRUE(passesInChild([&] { return chroot(files().file("root").c_str()) == 0 && sayInTwoSeconds(); }));
        EXPECT_THAT(textsIn("app.log"), ElementsAre("0", "1", "2", "3", "4"));
        unload();
        std::filesystem::remove(files().file("app.log"));
    }
}
