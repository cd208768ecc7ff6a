// Rings of which something was destroyed: what is missing is told, and nothing is told of rings that are whole.
#include "sorrelctl_fixture.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <random>

using sorrelctl::lossesOf;
using sorrelctl::Record;
using sorrelctl::Ring;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class SorrelctlDamage : public SorrelctlFixture {
protected:
    static constexpr std::size_t kLargestRecord = 7224;
    static constexpr std::size_t kFixedAndNames = 56 + 7; // what lies before the text

    // A ring that is no longer written.
    std::vector<char> ringOf(std::uint64_t messages) {
        std::filesystem::remove(path("numbered"));
        const Container container = openSmall("numbered");
        for (std::uint64_t i = 1; i <= messages; ++i) {
            log(*container, numbered(i));
        }
        return sorrelctl::readFile(path("numbered"));
    }

    static std::size_t placeOf(const Ring& ring, const Record& record) {
        return static_cast<std::size_t>(record.text.data() - ring.bytes.data());
    }

    // Changes one byte in each message.
    void expectAllTold(std::uint64_t messages) {
        std::vector<char> bytes = ringOf(messages);
        const Ring whole = sorrelctl::readRing(bytes);
        ASSERT_THAT(lossesOf(whole), IsEmpty()) << messages;
        const std::size_t unused = bytes.size() - placeOf(whole, whole.records.back());
        if (unused < 2 * kLargestRecord) { // what is left of the lap before may be of an earlier one
            return;
        }
        for (std::size_t i = 1; i < whole.records.size(); ++i) { // the oldest one may have been overwritten
            const std::size_t place = placeOf(whole, whole.records[i]);
            bytes[place] ^= 1;
            const Ring ring = sorrelctl::readRing(bytes);
            bytes[place] ^= 1;
            const std::uint64_t number = whole.records[i].sequence;
            const bool isNewest = i + 1 == whole.records.size();
            ASSERT_THAT(lossesOf(ring), SizeIs(1)) << number << " of " << messages;
            ASSERT_THAT(ring.lost, SizeIs(isNewest ? 0 : 1)) << number << " of " << messages;
            if (!isNewest) {
                EXPECT_LT(ring.lost[0].begin, place) << number << " of " << messages;
                EXPECT_GT(ring.lost[0].end, place) << number << " of " << messages;
            }
        }
    }

    // Changes a byte of a file where a text lies.
    void damage(const std::string& name, const std::string& text) {
        std::string bytes = files().read(name);
        bytes.at(bytes.find(text)) ^= 1;
        files().write(name, bytes);
    }
};

} // namespace

TEST_F(SorrelctlDamage, EachMessageThatIsMissingIsTold) {
    expectAllTold(50);
    ringOf(1000);
    const std::uint64_t perLap = read("numbered").records.size();
    for (std::uint64_t messages = 3 * perLap; messages < 4 * perLap; messages += perLap / 6) {
        expectAllTold(messages);
    }
}

TEST_F(SorrelctlDamage, AWholeRingHasNoDamageWhereverItsNewestMessageLies) {
    const Container container = openSmall("numbered");
    for (std::uint64_t i = 1; i <= 1200; ++i) {
        const bool isLong = i % 97 == 0; // leaves much of the ring's end unused
        log(*container, isLong ? std::string(4000, 'x') : numbered(i));
        const Ring ring = read("numbered");
        ASSERT_THAT(lossesOf(ring), IsEmpty()) << i;
    }
}

TEST_F(SorrelctlDamage, AMessageThatIsBeingWrittenIsNoDamage) {
    constexpr std::size_t kSequenceAt = 8;
    std::mt19937 random(1); // always the same stores
    const Container container = openSmall("numbered");
    int torn = 0;
    for (std::uint64_t i = 1; i <= 1000; ++i) {
        const bool isLong = i % 10 == 0;
        const std::vector<char> before = sorrelctl::readFile(path("numbered"));
        log(*container, isLong ? std::string(4095, 'x') : numbered(i % 7));
        if (!isLong) {
            continue;
        }
        const std::vector<char> after = sorrelctl::readFile(path("numbered"));
        const Ring ring = sorrelctl::readRing(after);
        const std::size_t begin = placeOf(ring, ring.records.back()) - kFixedAndNames;
        for (int many = 0; many < 8; ++many) { // any of its words may stand already
            std::vector<char> state = before;
            std::copy_n(&after[begin + kSequenceAt], sizeof i, &state[begin + kSequenceAt]);
            for (std::size_t word = begin + 2 * kSequenceAt; word < begin + 4096; word += 8) {
                std::copy_n(&after[word], random() % 8 < static_cast<unsigned int>(many) ? 8 : 0, &state[word]);
            }
            const Ring read = sorrelctl::readRing(state);
            ASSERT_THAT(lossesOf(read), IsEmpty()) << i;
            torn += read.isTorn ? 1 : 0;
        }
    }
    EXPECT_EQ(torn, 800);
}

TEST_F(SorrelctlDamage, AllBeforeADamagedMessageIsToldAndShownOnDemand) {
    ringOf(300);
    const std::uint64_t first = read("numbered").records.front().sequence;
    damage("numbered", "295 ");
    const Ring ring = read("numbered");
    ASSERT_THAT(ring.lost, SizeIs(1));
    const std::string name = "sorrelctl: " + path("numbered") + ": ";
    const std::string told = name + "byte " + std::to_string(ring.lost[0].begin) + ": no whole record up to byte " +
                             std::to_string(ring.lost[0].end) + "\n";
    const std::string older = std::to_string(295 - first);

    const Result few = record("export " + path("numbered"));
    EXPECT_EQ(few.status, 3);
    EXPECT_EQ(std::count(few.out.begin(), few.out.end(), '\n'), 5);
    EXPECT_EQ(few.err, name + older + " whole messages before a gap are left out (--all shows them too)\n" + told);

    const Result all = record("export --all " + path("numbered"));
    EXPECT_EQ(all.status, 3);
    EXPECT_EQ(std::count(all.out.begin(), all.out.end(), '\n'), 300 - static_cast<std::ptrdiff_t>(first));
    EXPECT_EQ(all.err, told);

    const Result shown = record("show " + path("numbered"));
    EXPECT_EQ(shown.status, 3);
    EXPECT_THAT(shown.out, HasSubstr("# older, before a gap: " + older + " (--all shows them too)\n"));
    EXPECT_EQ(shown.err, told);
}

TEST_F(SorrelctlDamage, ADamagedNewestMessageIsTold) {
    damage("ring", "last");
    const Result result = record("export --format text " + path("ring"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err,
              "sorrelctl: " + path("ring") + ": byte 136: 5 messages are counted, the newest whole one is number 4\n");
}

TEST_F(SorrelctlDamage, RestsOfEarlierLapsAreLeftOutWithoutAWord) {
    Container container = openSmall("numbered");
    for (std::uint64_t i = 1; i <= 400; ++i) {
        log(*container, numbered(i));
    }
    for (int i = 0; i < 45; ++i) {
        log(*container, std::string(4095, 'l'));
    }
    container.reset();
    ASSERT_GT(read("numbered").older.size(), 0U);
    const Result result = record("export " + path("numbered"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(SorrelctlDamage, WhatACopyMayMissIsNotToldOfARunningProcess) {
    const Container container = openSmall("numbered");
    for (std::uint64_t i = 1; i <= 20; ++i) {
        log(*container, numbered(i));
    }
    damage("numbered", "15 ");
    const Result result = record("show " + path("numbered"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr(", running\n"));
    EXPECT_THAT(result.out, HasSubstr("# older, before a gap: 14 "));
}
