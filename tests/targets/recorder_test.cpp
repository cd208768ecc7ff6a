// What the recorder keeps of messages and components.
#include "ring_fixture.hpp"

#include <sorrel/component.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

using sorrelctl::Record;
using sorrelctl::Ring;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Recorder : public RingFixture {};

} // namespace

TEST_F(Recorder, AMessageIsKeptWithAllItsValues) {
    const Container container = openSmall("ring");
    sorrel_level level = {3, 0x8};
    container->log(getpid(), -2, 1709211845, 42, &level, "main", "net", "poll", "a\n\xff\x1b");
    const Ring ring = read("ring");
    ASSERT_THAT(ring.records, SizeIs(1));
    const Record& record = ring.records[0];
    EXPECT_EQ(record.sequence, 1U);
    EXPECT_EQ(record.processId, getpid());
    EXPECT_EQ(record.threadId, static_cast<std::uint32_t>(gettid()));
    EXPECT_EQ(record.depth, -2);
    EXPECT_EQ(record.seconds, 1709211845);
    EXPECT_EQ(record.microseconds, 42);
    EXPECT_EQ(record.level, 3);
    EXPECT_EQ(record.mask, 0x8U);
    EXPECT_EQ(record.thread, "main");
    EXPECT_EQ(record.component, "net");
    EXPECT_EQ(record.function, "poll");
    EXPECT_EQ(record.text, "a\n\xff\x1b");
    EXPECT_FALSE(ring.isTorn);
    EXPECT_THAT(ring.damages, IsEmpty());
}

TEST_F(Recorder, TheHeaderTellsWhoseRingItIs) {
    const Container container = open("file=" + path("ring") + ",size=64k", "player");
    const Ring ring = read("ring");
    std::string boot;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
    EXPECT_EQ(ring.processId, getpid());
    EXPECT_EQ(ring.bootId, boot);
    EXPECT_EQ(ring.applicationName, "player");
    EXPECT_EQ(ring.addressSize, sizeof(void*));
    EXPECT_NEAR(static_cast<double>(ring.createdSeconds), static_cast<double>(time(nullptr)), 60);
    EXPECT_TRUE(isAlive(ring));
    EXPECT_FALSE(ring.hasEnded);
}

TEST_F(Recorder, TheHeaderFollowsTheApplicationName) {
    const Container container = openSmall("ring");
    EXPECT_EQ(read("ring").applicationName, "");
    configureApp("viewer", "target=" + library() + "\n");
    container->setAppname("viewer");
    EXPECT_EQ(read("ring").applicationName, "viewer");
    const std::string longName(300, 'x');
    configureApp(longName.substr(0, 200), "target=" + library() + "\n");
    container->setAppname(longName.substr(0, 200));
    EXPECT_EQ(read("ring").applicationName, longName.substr(0, 200));
}

TEST_F(Recorder, EmptyTextsAreKept) {
    const Container container = openSmall("ring");
    sorrel_level level = {6, 0x40};
    container->log(getpid(), 0, 0, 0, &level, "", "", "", "");
    log(*container, "behind it");
    const Ring ring = read("ring");
    EXPECT_THAT(textsOf(ring), ElementsAre("", "behind it"));
    EXPECT_EQ(ring.unlisted, 1U) << "a component without a name has no entry";
}

TEST_F(Recorder, TextsThatAreTooLongAreCutAndCounted) {
    const Container container = openSmall("ring");
    sorrel_level level = {6, 0x40};
    const std::string name(2000, 'n');
    container->log(getpid(), 0, 0, 0, &level, name, name, name, std::string(5000, 't'));
    container->log(getpid(), 0, 0, 0, &level, "", name.substr(0, 1023), "", std::string(4095, 't'));
    const Ring ring = read("ring");
    ASSERT_THAT(ring.records, SizeIs(2));
    EXPECT_EQ(ring.records[0].thread, name.substr(0, 1023));
    EXPECT_EQ(ring.records[0].component, name.substr(0, 1023));
    EXPECT_EQ(ring.records[0].function, name.substr(0, 1023));
    EXPECT_EQ(ring.records[0].text, std::string(4095, 't'));
    EXPECT_EQ(ring.cut, 1U);
    EXPECT_EQ(ring.messages, 2U);
    EXPECT_EQ(ring.components.at(0).name, name.substr(0, 224));
}

TEST_F(Recorder, TheNewestMessagesFillTheRing) {
    const Container container = openSmall("ring");
    constexpr std::uint64_t kMessages = 3000;
    for (std::uint64_t i = 1; i <= kMessages; ++i) {
        log(*container, numbered(i));
        if (i % 50 == 0) {
            const Ring ring = read("ring");
            ASSERT_EQ(ring.records.back().sequence, i);
            ASSERT_TRUE(areNumbered(ring));
            ASSERT_TRUE(ring.records.front().sequence == 1 || bytesOf(ring) > kSmallRing * 9 / 10) << bytesOf(ring);
            ASSERT_FALSE(ring.isTorn);
            ASSERT_THAT(lossesOf(ring), IsEmpty());
        }
    }
    EXPECT_GT(read("ring").records.front().sequence, 1U);
    EXPECT_EQ(read("ring").messages, kMessages);
}

TEST_F(Recorder, MessagesOfEarlierLapsAreNotTakenForNewOnes) {
    const Container container = openSmall("ring");
    for (int i = 0; i < 400; ++i) { // more than a lap, up to the end of the ring
        log(*container, std::string(200, 's'));
    }
    for (int i = 0; i < 45; ++i) { // 14 in a lap; what is left of it stays as it was
        log(*container, std::string(4095, 'l'));
    }
    const Ring ring = read("ring");
    EXPECT_EQ(ring.records.size(), 14U);
    for (const Record& record : ring.records) {
        EXPECT_EQ(record.text[0], 'l') << record.sequence;
    }
    EXPECT_EQ(ring.records.back().sequence, 445U);
    EXPECT_THAT(ring.older, testing::Not(IsEmpty()));
}

TEST_F(Recorder, ComponentsThatWereAnnouncedHaveMaskAndAddress) {
    const Container container = openSmall("ring");
    sorrel_component net = {"net", 0x1f, {}};
    sorrel_component quiet = {"quiet", 0x1, {}};
    container->onComponentAdded(&net);
    container->onComponentAdded(&quiet);
    net.mask = 0x2f; // nobody tells the target
    log(*container, "a", "net");
    log(*container, "b", "net");
    log(*container, "c", "unannounced");
    const std::string netAtFirst = "net 2 31 " + std::to_string(reinterpret_cast<std::uintptr_t>(&net.mask));
    EXPECT_THAT(componentsOf(read("ring")), ElementsAre(netAtFirst, entry(quiet, 0), "unannounced 1 ?"));
    sorrel_component late = {"unannounced", 0x3, {}};
    container->onComponentAdded(&late);
    container->onComponentAdded(&net);
    EXPECT_THAT(componentsOf(read("ring")), ElementsAre(entry(net, 2), entry(quiet, 0), entry(late, 1)));
}

TEST_F(Recorder, WhenTheTableIsFullMessagesAreKeptAllTheSame) {
    const Container container = openSmall("ring");
    for (int i = 0; i < 2000; ++i) {
        log(*container, "text", "component " + std::to_string(i % 1000));
    }
    log(*container, "last", "component 3");
    log(*container, "last", "component 999");
    const Ring ring = read("ring");
    EXPECT_THAT(ring.components, SizeIs(16));
    EXPECT_EQ(ring.componentCapacity, 16U);
    EXPECT_EQ(ring.components.at(3).messages, 3U);
    EXPECT_EQ(ring.unlisted, 2U * (1000 - 16) + 1);
    EXPECT_EQ(ring.records.back().component, "component 999");
}

TEST_F(Recorder, LevelsAndComponentsAreChosen) {
    const Container container = open("file=" + path("ring") + ",size=64k,levels=err,components=n*");
    log(*container, "a", "net", 3);
    log(*container, "b", "net");
    log(*container, "c", "disk", 3);
    EXPECT_THAT(textsOf(read("ring")), ElementsAre("a"));
}

TEST_F(Recorder, ThreadsAreToldApart) {
    const Container container = openSmall("ring");
    std::set<std::uint32_t> ids;
    for (int i = 0; i < 8; ++i) {
        std::thread([&] {
            log(*container, "a");
            ids.insert(static_cast<std::uint32_t>(gettid()));
            log(*container, "b");
        }).join();
    }
    std::set<std::uint32_t> found;
    const Ring ring = read("ring");
    for (const Record& record : ring.records) {
        found.insert(record.threadId);
    }
    EXPECT_EQ(found, ids);
}

TEST_F(Recorder, ManyThreadsWriteIntoOneRing) {
    const Container container = openSmall("ring");
    constexpr int kThreads = 8;
    constexpr int kMessages = 1000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&container] {
            for (int k = 0; k < kMessages; ++k) {
                log(*container, numbered(static_cast<std::uint64_t>(k)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const Ring ring = read("ring");
    EXPECT_EQ(ring.records.back().sequence, static_cast<std::uint64_t>(kThreads) * kMessages);
    EXPECT_GT(bytesOf(ring), kSmallRing * 9 / 10);
}

TEST_F(Recorder, TheRingIsReadWhileItIsWritten) {
    const Container container = openSmall("ring");
    log(*container, numbered(1));
    std::atomic<bool> isOver{false};
    std::atomic<std::uint64_t> finished{1};
    std::thread writer([&] {
        for (std::uint64_t i = 2; !isOver; ++i) {
            log(*container, numbered(i));
            finished = i;
        }
    });
    for (int i = 0; i < 300; ++i) {
        const std::uint64_t before = finished;
        const Ring ring = read("ring");
        EXPECT_TRUE(areNumbered(ring));
        EXPECT_TRUE(!ring.records.empty() && ring.records.back().sequence >= before);
    }
    isOver = true;
    writer.join();
}
