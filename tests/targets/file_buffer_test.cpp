// The file target, and when it writes: at once, or what has gathered. What becomes of it in children.
#include "child_process.hpp"
#include "line_target_fixture.hpp"
#include "shared_object.hpp"

#include <atomic>
#include <gmock/gmock.h>

#include <csignal>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class FileBuffer : public LineTargetFixture {
protected:
    std::vector<std::string> texts() { return textsIn("app.log"); }

    void sayAt(const char* text, long long seconds, int microseconds) {
        log({text, 0, 6, "", "net", "main", kLeapDay + seconds, microseconds});
    }

    // The kernel looks for a deadly signal when a write comes to the next page: lines of such a length end there.
    void sayIn128Bytes(const std::string& word) {
        constexpr std::size_t kAround = 55;
        log({std::string(128 - kAround - 1 - word.size(), '-') + " " + word});
    }

    // The numbers from 0 on, each a line of the file.
    void expectNumbers(std::size_t least, std::size_t most) {
        const std::vector<std::string> found = texts();
        EXPECT_GE(found.size(), least);
        EXPECT_LE(found.size(), most);
        for (std::size_t i = 0; i < found.size(); ++i) {
            ASSERT_EQ(found[i], std::to_string(i));
        }
        EXPECT_EQ(textOf("app.log").back(), '\n');
    }
};

} // namespace

TEST_F(FileBuffer, WithoutOneEveryLineIsInTheFileAtOnce) {
    load(fileTarget("flush=always"));
    log({"a"});
    EXPECT_THAT(texts(), ElementsAre("a"));
}

TEST_F(FileBuffer, IsWrittenAtTheLevelAndAtGraverOnes) {
    load(fileTarget("flush=err"));
    log({"a", 0, 4});
    EXPECT_THAT(texts(), IsEmpty());
    log({"b", 0, 3});
    EXPECT_THAT(texts(), ElementsAre("a", "b"));
    log({"c", 0, 6});
    EXPECT_THAT(texts(), SizeIs(2));
    log({"d", 0, 0});
    EXPECT_THAT(texts(), ElementsAre("a", "b", "c", "d"));
}

TEST_F(FileBuffer, IsWrittenWhenItHolds64KiB) {
    load(fileTarget("flush=err"));
    const std::size_t lineLength = 1024;
    const std::string text(lineLength - 55, 'x'); // less what stands around it
    for (int i = 0; i < 63; ++i) {
        log({text});
    }
    EXPECT_THAT(texts(), IsEmpty());
    log({text});
    EXPECT_EQ(textOf("app.log").size(), 64 * lineLength);
    log({text});
    EXPECT_EQ(textOf("app.log").size(), 64 * lineLength);
}

TEST_F(FileBuffer, IsWrittenWithTheNextMessageAfterASecond) {
    load(fileTarget("flush=err"));
    sayAt("a", 0, 500000);
    sayAt("b", 1, 500000);
    EXPECT_THAT(texts(), IsEmpty());
    sayAt("c", 1, 500001);
    EXPECT_THAT(texts(), ElementsAre("a", "b", "c"));
    sayAt("d", 2, 500001);
    EXPECT_THAT(texts(), SizeIs(3));
}

TEST_F(FileBuffer, IsWrittenWhenTheClockWasSetBack) {
    load(fileTarget("flush=err"));
    sayAt("a", 0, 0);
    sayAt("b", -1, 999999);
    EXPECT_THAT(texts(), ElementsAre("a", "b"));
}

TEST_F(FileBuffer, IsWrittenWhenTheTargetIsUnloaded) {
    load(fileTarget("flush=err"));
    log({"a"});
    unload();
    EXPECT_THAT(texts(), ElementsAre("a"));
}

TEST_F(FileBuffer, KilledProcessesLoseNothingWithoutOne) {
    constexpr unsigned int kEnough = 200;
    for (int round = 0; round < 20; ++round) {
        files().write("app.log", "");
        SharedObject<std::atomic<unsigned int>> written;
        const pid_t child = startChild([&] {
            load(fileTarget());
            for (;; ++*written) {
                sayIn128Bytes(std::to_string(*written));
            }
            return false;
        });
        EXPECT_TRUE(waitUntil([&] { return *written > kEnough; }));
        kill(child, SIGKILL);
        EXPECT_EQ(endOfChild(child), -SIGKILL);
        expectNumbers(*written, *written + 1);
    }
}

TEST_F(FileBuffer, AHalfLineOfAKilledProcessStaysAlone) {
    files().write("app.log", "half");
    load(fileTarget());
    log({"a"});
    EXPECT_EQ(textOf("app.log").substr(0, 5), "half\n");
    EXPECT_THAT(texts(), ElementsAre("half", "a"));
}

TEST_F(FileBuffer, AChildLeavesTheParentsLinesToTheParent) {
    load(fileTarget("flush=err"));
    log({"parent"});
    EXPECT_TRUE(passesInChild([this] {
        unload();
        return true;
    }));
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_TRUE(passesInChild([this] {
        log({"child", 0, 3});
        return texts() == std::vector<std::string>{"child"};
    }));
    log({"end", 0, 3});
    EXPECT_THAT(texts(), ElementsAre("child", "parent", "end"));
}

TEST_F(FileBuffer, AChildBuffersItsOwnLines) {
    load(fileTarget("flush=err"));
    log({"parent"});
    EXPECT_TRUE(passesInChild([this] {
        log({"child"});
        const bool isBuffered = texts().empty();
        unload();
        return isBuffered;
    }));
    EXPECT_THAT(texts(), ElementsAre("child"));
    unload();
    EXPECT_THAT(texts(), ElementsAre("child", "parent"));
}

TEST_F(FileBuffer, AChildOfAChildLosesNothingEither) {
    load(fileTarget("flush=err"));
    EXPECT_TRUE(passesInChild([this] {
        log({"child"});
        const bool passed = passesInChild([this] {
            log({"grandchild"});
            unload();
            return true;
        });
        unload();
        return passed;
    }));
    EXPECT_THAT(texts(), ElementsAre("grandchild", "child"));
}
