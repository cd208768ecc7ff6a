// The recorder in processes that end, that fork, and that are forked.
#include "child_process.hpp"
#include "ring_fixture.hpp"

#include <sorrel/component.hpp>

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

using sorrelctl::Ring;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class RecorderProcess : public RingFixture {};

} // namespace

TEST_F(RecorderProcess, TheEndOfTheTargetIsMarked) {
    openSmall("ring").reset();
    EXPECT_TRUE(read("ring").hasEnded);
    EXPECT_FALSE(isAlive(read("ring")));
}

TEST_F(RecorderProcess, AProcessThatIsKilledIsGoneWithoutAnEnd) {
    const int end = endOfChild(startChild([this]() -> bool {
        const Container container = openSmall("ring");
        log(*container, "last words");
        return raise(SIGKILL) == 0;
    }));
    EXPECT_EQ(end, -SIGKILL);
    const Ring ring = read("ring");
    EXPECT_THAT(textsOf(ring), ElementsAre("last words"));
    EXPECT_FALSE(ring.hasEnded);
    EXPECT_FALSE(isAlive(ring));
}

TEST_F(RecorderProcess, AChildWritesIntoARingOfItsOwn) {
    const Container container = openSmall("%p.ring");
    sorrel_component net = {"net", 0x1f, {}};
    container->onComponentAdded(&net);
    log(*container, "parent");
    const pid_t child = startChild([&] {
        log(*container, "child");
        return true;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    log(*container, "parent again");
    const Ring parents = read(std::to_string(getpid()) + ".ring");
    const Ring childs = read(std::to_string(child) + ".ring");
    EXPECT_THAT(textsOf(parents), ElementsAre("parent", "parent again"));
    EXPECT_THAT(textsOf(childs), ElementsAre("child"));
    EXPECT_EQ(childs.processId, child);
    EXPECT_EQ(childs.records[0].threadId, static_cast<std::uint32_t>(child));
    EXPECT_THAT(componentsOf(childs), ElementsAre(entry(net, 1)));
    EXPECT_THAT(componentsOf(parents), ElementsAre(entry(net, 2)));
}

TEST_F(RecorderProcess, AChildsRingLiesBesideItsParentsWhereverTheProcessHasGone) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directory(path("100%"));
    std::filesystem::create_directory(path("elsewhere"));
    std::filesystem::current_path(path("100%"));
    const Container container = open("file=%p.ring,size=64k");
    std::filesystem::current_path("../elsewhere");
    const pid_t child = startChild([&] {
        log(*container, "child");
        return true;
    });
    EXPECT_EQ(endOfChild(child), kChildPassed);
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::is_empty(path("elsewhere")));
    EXPECT_THAT(textsOf(read("100%/" + std::to_string(child) + ".ring")), ElementsAre("child"));
}

TEST_F(RecorderProcess, AChildThatCreatesAComponentLeavesTheParentsRingAlone) {
    const Container container = openSmall("%p.ring");
    sorrel_component net = {"net", 0x1f, {}};
    EXPECT_TRUE(passesInChild([&] {
        container->onComponentAdded(&net);
        return true;
    }));
    EXPECT_THAT(componentsOf(read(std::to_string(getpid()) + ".ring")), IsEmpty());
}

TEST_F(RecorderProcess, AChildThatGetsNoRingLosesItsMessagesOnly) {
    std::filesystem::create_directory(path("rings"));
    Container container = openSmall("rings/%p.ring");
    log(*container, "parent");
    std::filesystem::rename(path("rings"), path("away"));
    files().write("rings", "no directory");
    EXPECT_TRUE(passesInChild([&] {
        log(*container, "a");
        log(*container, "b");
        container.reset();
        return true;
    }));
    EXPECT_TRUE(diagnostics().has("recorder-target: 2 messages lost: Not a directory"));
    log(*container, "parent again");
    EXPECT_THAT(textsOf(read("away/" + std::to_string(getpid()) + ".ring")), ElementsAre("parent", "parent again"));
}

TEST_F(RecorderProcess, AMessageWithAnotherProcessIdIsStillOfThisProcess) {
    const Container container = openSmall("ring");
    sorrel_level level = {6, 0x40};
    container->log(1, 0, 0, 0, &level, "main", "net", "", "text");
    const Ring ring = read("ring");
    EXPECT_THAT(textsOf(ring), ElementsAre("text"));
    EXPECT_EQ(ring.records[0].processId, 1);
}
