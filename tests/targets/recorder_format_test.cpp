// The bytes of a ring: files that were made by hand are read, on any machine, and the recorder writes such files. The
// numbers here are those of docs/RECORDER_FORMAT.md.
#include "ring_fixture.hpp"

#include <gmock/gmock.h>
#include <string>
#include <vector>

using sorrelctl::readFile;
using sorrelctl::readRing;
using sorrelctl::Record;
using sorrelctl::Records;
using sorrelctl::Ring;
using sorrelctl::RingError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kTorn = SORREL_TEST_DATA "/32bit-torn.ring";
const std::string kEmpty = SORREL_TEST_DATA "/64bit-empty.ring";
constexpr std::size_t kRingBegin = 512 + 3 * 256; // in both

class RecorderFormat : public RingFixture {
protected:
    static std::vector<std::uint64_t> sequencesOf(const Records& records) {
        std::vector<std::uint64_t> numbers;
        for (const Record& record : records) {
            numbers.push_back(record.sequence);
        }
        return numbers;
    }

    static std::uint64_t numberAt(const std::vector<char>& bytes, std::size_t offset, std::size_t size) {
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < size; ++i) {
            number += static_cast<std::uint64_t>(static_cast<unsigned char>(bytes.at(offset + i))) << (8 * i);
        }
        return number;
    }

    static std::string textAt(const std::vector<char>& bytes, std::size_t offset, std::size_t size) {
        return {bytes.data() + offset, size};
    }

    // What reading these bytes ends with.
    static std::string errorOf(const std::vector<char>& bytes) {
        try {
            readRing(bytes);
            return "none";
        } catch (const RingError& error) {
            return error.what();
        }
    }

    // A ring with one byte changed.
    static Ring readChanged(std::size_t offset, char value, const std::string& file = kTorn) {
        std::vector<char> bytes = readFile(file);
        bytes.at(offset) = value;
        return readRing(bytes);
    }
};

} // namespace

TEST_F(RecorderFormat, ARingOfA32BitProcessIsRead) {
    const Ring ring = readRing(readFile(kTorn));
    EXPECT_EQ(ring.addressSize, 4U);
    EXPECT_EQ(ring.processId, 4711);
    EXPECT_EQ(ring.startTime, 98765U);
    EXPECT_EQ(ring.createdSeconds, 1709211840);
    EXPECT_EQ(ring.createdMicroseconds, 250000U);
    EXPECT_EQ(ring.bootId, "01234567-89ab-cdef-0123-456789abcdef");
    EXPECT_EQ(ring.applicationName, "player");
    EXPECT_FALSE(isAlive(ring));
    EXPECT_EQ(ring.messages, 5U);
    EXPECT_EQ(ring.unlisted, 1U);
    ASSERT_THAT(ring.components, SizeIs(2));
    EXPECT_EQ(ring.components[0].name, "net");
    EXPECT_EQ(ring.components[0].mask, 0x7fU);
    EXPECT_EQ(ring.components[0].address, 0xb6f01234U);
    EXPECT_EQ(ring.components[0].messages, 3U);
    EXPECT_TRUE(ring.components[0].isMaskKnown);
    EXPECT_FALSE(ring.components[1].isMaskKnown);
    EXPECT_THAT(ring.damages, IsEmpty());
    EXPECT_THAT(lossesOf(ring), IsEmpty());
}

TEST_F(RecorderFormat, OnlyTheRunThatEndsAtTheNewestIsTaken) {
    const Ring ring = readRing(readFile(kTorn));
    EXPECT_THAT(sequencesOf(ring.records), ElementsAre(3, 4, 5));
    EXPECT_THAT(sequencesOf(ring.older), ElementsAre(1));
    EXPECT_TRUE(ring.isTorn);
    const Record& newest = ring.records.back();
    EXPECT_EQ(newest.seconds, 1709211850);
    EXPECT_EQ(newest.microseconds, 500000);
    EXPECT_EQ(newest.level, 6);
    EXPECT_EQ(newest.mask, 0x40U);
    EXPECT_EQ(newest.depth, 1);
    EXPECT_EQ(newest.threadId, 4712U);
    EXPECT_EQ(newest.processId, 4711);
    EXPECT_EQ(newest.thread, "main");
    EXPECT_EQ(newest.component, "net");
    EXPECT_EQ(newest.function, "poll");
    EXPECT_EQ(newest.text, "five \xc3\xa9 \xff \x1b[2J");
    EXPECT_EQ(ring.records[1].text, "four, which is graver");
}

TEST_F(RecorderFormat, ARingWithoutMessagesIsRead) {
    const Ring ring = readRing(readFile(kEmpty));
    EXPECT_EQ(ring.addressSize, 8U);
    EXPECT_THAT(ring.records, IsEmpty());
    EXPECT_FALSE(ring.isTorn);
    EXPECT_THAT(lossesOf(ring), IsEmpty());
}

TEST_F(RecorderFormat, TheFirstMessageMayBeTorn) {
    EXPECT_TRUE(readChanged(kRingBegin + 8, 1, kEmpty).isTorn);
    EXPECT_FALSE(readChanged(kRingBegin + 8, 2, kEmpty).isTorn);
}

TEST_F(RecorderFormat, ADamagedMessageEndsTheRun) {
    const std::vector<char> bytes = readFile(kTorn);
    const std::string file(bytes.begin(), bytes.end());
    const Ring ring = readChanged(file.find("four"), 'F');
    EXPECT_THAT(sequencesOf(ring.records), ElementsAre(5));
    EXPECT_THAT(sequencesOf(ring.older), ElementsAre(1, 3));
}

TEST_F(RecorderFormat, EveryByteOfAMessageIsProtected) {
    const std::vector<char> bytes = readFile(kTorn);
    const std::string file(bytes.begin(), bytes.end());
    const std::size_t begin = kRingBegin;
    const std::size_t end = file.find("\x1b[2J") + 4;
    for (std::size_t i = begin; i < end; ++i) {
        const Ring ring = readChanged(i, static_cast<char>(bytes[i] ^ 1));
        EXPECT_THAT(sequencesOf(ring.records), ElementsAre(3, 4)) << "byte " << i;
    }
}

TEST_F(RecorderFormat, ADamagedHeaderIsToldAndLeavesTheMessages) {
    const Ring ring = readChanged(48, 1); // the start of the process
    EXPECT_THAT(ring.damages, ElementsAre("bytes 16 to 127: the header does not match its checksum"));
    EXPECT_THAT(sequencesOf(ring.records), ElementsAre(3, 4, 5));
}

TEST_F(RecorderFormat, WithoutALayoutTheWholeFileIsSearched) {
    for (const std::size_t offset : {19U, 23U, 27U, 28U, 31U}) {
        const Ring ring = readChanged(offset, 0x7f);
        EXPECT_THAT(ring.damages, testing::Contains("bytes 16 to 39: no such component table, no such ring")) << offset;
        EXPECT_THAT(sequencesOf(ring.records), ElementsAre(3, 4, 5)) << offset;
    }
}

TEST_F(RecorderFormat, AFileThatWasCutOffYieldsWhatIsLeft) {
    std::vector<char> bytes = readFile(kTorn);
    bytes.resize(kRingBegin + 400);
    const Ring ring = readRing(bytes);
    EXPECT_THAT(ring.damages, ElementsAre("byte 1680: the file ends, the ring has 624 bytes more"));
    EXPECT_THAT(sequencesOf(ring.records), ElementsAre(5));
}

TEST_F(RecorderFormat, LengthsThatCannotBeAreTold) {
    EXPECT_THAT(readChanged(512 + 3, 1).damages, ElementsAre("byte 512: a component name of 16777219 bytes"));
    EXPECT_THAT(readChanged(512 + 3, 1).components, SizeIs(1));
    EXPECT_THAT(readChanged(132 + 1, 1).damages, ElementsAre("byte 132: an application name of 262 bytes"));
}

TEST_F(RecorderFormat, WhatIsNoRingIsRefused) {
    EXPECT_EQ(errorOf({}), "is no ring: it has 0 bytes, a header has 512");
    EXPECT_EQ(errorOf(std::vector<char>(511, 'x')), "is no ring: it has 511 bytes, a header has 512");
    EXPECT_EQ(errorOf(std::vector<char>(512, 'x')), "is no ring: it does not begin with SRLRING");
    EXPECT_EQ(errorOf(std::vector<char>(512, '\0')), "is no ring: its process ended before the header was written");
    std::vector<char> bytes = readFile(kTorn);
    bytes[8] = 2;
    EXPECT_EQ(errorOf(bytes), "is a ring of version 2; this program knows version 1");
}

TEST_F(RecorderFormat, FilesThatCannotBeReadAreTold) {
    EXPECT_THROW(readFile(path("missing")), RingError);
    EXPECT_THROW(readFile(directory()), RingError);
}

TEST_F(RecorderFormat, TheRecorderWritesThisFormat) {
    const Container container = open("file=" + path("ring") + ",size=64k", "player");
    sorrel_level level = {3, 0x8};
    container->log(getpid(), -2, 1709211845, 42, &level, "main", "net", "poll", "text");
    log(*container, "behind");
    const std::vector<char> bytes = readFile(path("ring"));
    ASSERT_THAT(bytes, SizeIs(65536));
    EXPECT_EQ(textAt(bytes, 0, 8), "SRLRING\n");
    EXPECT_EQ(numberAt(bytes, 8, 4), 1U);
    EXPECT_EQ(numberAt(bytes, 16, 4), 512U);
    EXPECT_EQ(numberAt(bytes, 20, 4), 256U);
    EXPECT_EQ(numberAt(bytes, 24, 4), 16U);
    EXPECT_EQ(numberAt(bytes, 28, 4), 4608U);
    EXPECT_EQ(numberAt(bytes, 32, 8), 65536U - 4608U);
    EXPECT_EQ(numberAt(bytes, 44, 4), static_cast<std::uint64_t>(getpid()));
    EXPECT_EQ(numberAt(bytes, 68, 4), sizeof(void*));
    EXPECT_EQ(numberAt(bytes, 128, 4), 1U);
    EXPECT_EQ(numberAt(bytes, 132, 4), 6U);
    EXPECT_EQ(numberAt(bytes, 136, 8), 2U);
    EXPECT_EQ(textAt(bytes, 160, 6), "player");
    EXPECT_EQ(numberAt(bytes, 512, 4), 3U);
    EXPECT_EQ(numberAt(bytes, 512 + 16, 8), 2U);
    EXPECT_EQ(textAt(bytes, 512 + 32, 3), "net");
    const std::size_t record = 4608;
    EXPECT_EQ(numberAt(bytes, record + 4, 4), 71U);
    EXPECT_EQ(numberAt(bytes, record + 8, 8), 1U);
    EXPECT_EQ(numberAt(bytes, record + 16, 8), 1709211845U);
    EXPECT_EQ(numberAt(bytes, record + 24, 4), 42U);
    EXPECT_EQ(numberAt(bytes, record + 28, 4), 3U);
    EXPECT_EQ(numberAt(bytes, record + 32, 4), 8U);
    EXPECT_EQ(numberAt(bytes, record + 36, 4), 0xfffffffeU);
    EXPECT_EQ(numberAt(bytes, record + 40, 4), static_cast<std::uint64_t>(gettid()));
    EXPECT_EQ(numberAt(bytes, record + 44, 4), static_cast<std::uint64_t>(getpid()));
    EXPECT_EQ(numberAt(bytes, record + 48, 8), 0x0004000400030004U);
    EXPECT_EQ(textAt(bytes, record + 56, 16), std::string("mainnetpolltext") + '\0');
    EXPECT_EQ(numberAt(bytes, record + 72 + 8, 8), 2U) << "the next record begins behind 8 bytes and 8 more";
}

TEST_F(RecorderFormat, RecordsAreFilledUpWithZeros) {
    const Container container = openSmall("ring");
    for (int i = 0; i < 20; ++i) { // more than a lap
        log(*container, std::string(4095, 'x'));
    }
    log(*container, "text");
    const std::vector<char> bytes = readFile(path("ring"));
    const std::string file(bytes.begin(), bytes.end());
    EXPECT_EQ(file.substr(file.find("mainnettext"), 16), "mainnettext" + std::string(5, '\0'));
}
