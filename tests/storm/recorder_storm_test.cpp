// Processes that are killed while they log into a ring: what they had finished is whole, and nothing else is shown.
#include "child_process.hpp"
#include "ring_fixture.hpp"
#include "shared_object.hpp"
#include "storm_size.hpp"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <random>

using sorrelctl::Ring;

namespace {

constexpr int kRingKills = 1000;
constexpr int kMaxRingMicroseconds = 1500;

// How many messages the process that is going to be killed has finished.
using Finished = std::atomic<std::uint64_t>;

class RecorderStorm : public RingFixture {
protected:
    [[noreturn]] void logForEver(Finished& finished) {
        std::signal(SIGSEGV, SIG_DFL); // a sanitizer has a handler of its own
        const Container container = openSmall("ring");
        for (std::uint64_t i = 1;; ++i) {
            log(*container, numbered(i));
            finished = i;
        }
    }

    // The ring of a process that a signal has ended some time after a number of messages.
    Ring ringOfKilled(int signal, std::uint64_t after, std::uint64_t& finished) {
        std::filesystem::remove(path("ring"));
        SharedObject<Finished> shared;
        const pid_t child = startChild([&]() -> bool { logForEver(*shared); });
        EXPECT_TRUE(waitUntil([&] { return *shared >= after; }));
        std::this_thread::sleep_for(std::chrono::microseconds(m_delay(m_random)));
        kill(child, signal);
        EXPECT_EQ(endOfChild(child), -signal);
        finished = *shared;
        return read("ring");
    }

    // The process may have finished one more than it has told.
    void check(const Ring& ring, std::uint64_t finished) {
        ASSERT_FALSE(ring.records.empty());
        const std::uint64_t newest = ring.records.back().sequence;
        EXPECT_TRUE(newest == finished || newest == finished + 1) << newest << " of " << finished;
        EXPECT_TRUE(!ring.isTorn || newest == finished) << newest << " of " << finished;
        EXPECT_TRUE(areNumbered(ring));
        EXPECT_TRUE(ring.records.front().sequence == 1 || bytesOf(ring) > kSmallRing * 9 / 10) << bytesOf(ring);
        EXPECT_TRUE(ring.damages.empty());
        EXPECT_TRUE(lossesOf(ring).empty()) << lossesOf(ring).front();
        EXPECT_FALSE(ring.hasEnded);
    }

private:
    std::mt19937 m_random; // not seeded: always the same delays
    std::uniform_int_distribution<int> m_delay{0, kMaxRingMicroseconds};
};

} // namespace

TEST_F(RecorderStorm, WhatWasFinishedBeforeAKillIsWhole) {
    const int kills = stormCount(kRingKills);
    int torn = 0;
    int laps = 0;
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        std::uint64_t finished = 0;
        const Ring ring = ringOfKilled(i % 2 == 0 ? SIGKILL : SIGSEGV, i % 4 < 2 ? 500 : 1, finished);
        check(ring, finished);
        torn += ring.isTorn ? 1 : 0;
        laps += !ring.records.empty() && ring.records.front().sequence > 1 ? 1 : 0;
    }
    std::printf("%d kills, %d of them within a message, %d after a lap\n", kills, torn, laps);
    EXPECT_GT(laps, 0);
}
