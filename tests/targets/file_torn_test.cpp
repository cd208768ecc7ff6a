// The file target, and a file that ends in the middle of a line: of a process that was killed, or that is writing it.
#include "line_target_fixture.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <time.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;
using testing::StartsWith;

namespace {

int pauses = 0;
std::function<void()> duringPauses = [] {};

int fakePause() {
    ++pauses;
    duringPauses();
    return 0;
}

class TornFile : public LineTargetFixture {
protected:
    void SetUp() override { files().write("app.log", "half"); }

    void logInSecond(int second, const std::string& text) { log({text, 0, 6, "", "net", "main", kLeapDay + second}); }

    void append(const std::string& text) { std::ofstream(files().file("app.log"), std::ios::app) << text; }
};

} // namespace

extern "C" int nanosleep(const timespec*, timespec*) {
    return fakePause();
}

// What the target calls where it has chosen 64 bits for times.
extern "C" int fakeNanosleep64(const void*, void*) __asm__("__nanosleep64");
extern "C" int fakeNanosleep64(const void*, void*) {
    return fakePause();
}

TEST_F(TornFile, HalfALineIsEnded) {
    load(fileTarget());
    log({"a"});
    log({"b"});
    EXPECT_THAT(textOf("app.log"), StartsWith("half\n2024-02-29 "));
    EXPECT_THAT(linesOf(textOf("app.log")), SizeIs(3));
    EXPECT_EQ(pauses, 5);
}

TEST_F(TornFile, ALineThatAnotherProcessIsWritingIsNotEnded) {
    duringPauses = [this] { append(pauses < 3 ? " and" : " whole\n"); };
    load(fileTarget("max_size=1k"));
    log({"a"});
    EXPECT_THAT(textOf("app.log"), StartsWith("half and and whole\n2024-02-29 "));
    EXPECT_EQ(pauses, 3);
}

TEST_F(TornFile, WithALimitHalfALineBehindOnesOwnIsEndedAtOnce) {
    files().write("app.log", "");
    load(fileTarget("max_size=1k"));
    log({"a"});
    append("half");
    log({"b"});
    EXPECT_THAT(linesOf(textOf("app.log")), ElementsAre(EndsWith(" a"), "half", EndsWith(" b")));
    EXPECT_EQ(pauses, 5);
}

TEST_F(TornFile, WithoutALimitItIsEndedInTheNextSecond) {
    files().write("app.log", "");
    load(fileTarget());
    log({"a"});
    append("half");
    logInSecond(1, "b");
    EXPECT_THAT(linesOf(textOf("app.log")), ElementsAre(EndsWith(" a"), "half", EndsWith(" b")));
    EXPECT_EQ(pauses, 5);
}

TEST_F(TornFile, WhereOthersWriteWholeLinesNobodyWaits) {
    for (const char* parameters : {"", "max_size=1k"}) {
        files().write("app.log", "");
        load(fileTarget(parameters));
        for (int second = 0; second < 3; ++second) {
            logInSecond(second, "a");
            append("whole\n");
        }
        EXPECT_THAT(linesOf(textOf("app.log")), SizeIs(6));
        unload();
    }
    EXPECT_EQ(pauses, 0);
}

TEST_F(TornFile, ALineThatAnotherProcessIsWritingInTheMeantimeIsNotEnded) {
    duringPauses = [this] { append(pauses % 2 == 1 ? " and" : " whole\n"); };
    for (const char* parameters : {"", "max_size=1k"}) {
        files().write("app.log", "");
        load(fileTarget(parameters));
        log({"a"});
        append("half");
        logInSecond(1, "b");
        EXPECT_THAT(linesOf(textOf("app.log")), ElementsAre(EndsWith(" a"), "half and whole", EndsWith(" b")));
        unload();
    }
    EXPECT_EQ(pauses, 4);
}

TEST_F(TornFile, OnAFullDiskNobodyWaitsAgain) {
    mountSmallDisk();
    std::ofstream(disk() + "/app.log") << std::string(128 * 1024, 'x');
    load(targetPath("file") + ",file=" + disk() + "/app.log");
    log({"a"});
    log({"b"});
    EXPECT_EQ(pauses, 5);
    growDisk();
    log({"c"});
    EXPECT_EQ(pauses, 5);
    EXPECT_THAT(outputOf("tail -c 200 " + disk() + "/app.log"), EndsWith("c\n"));
    EXPECT_THAT(outputOf("grep -c . " + disk() + "/app.log"), StartsWith("3\n")); // one announces what is lost
}
