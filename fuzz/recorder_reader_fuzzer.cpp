// Ring files, beside an oracle that was written from docs/RECORDER_FORMAT.md: the run of messages, what lies before it,
// the torn one, the places of lost ones. Then all that sorrelctl writes about them.
//
// The first byte of an input says whether the rest is the file as it stands (0), or whether magic, version and
// checksums are put in, which no fuzzer finds by itself.
#include <sorrelctl/record_filter.hpp>
#include <sorrelctl/record_output.hpp>
#include <sorrelctl/ring_reader.hpp>

#include "support/difference.hpp"

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>
#include <xxhash.h>

namespace {

using Bytes = std::vector<char>;
using Messages = std::vector<std::pair<std::string, std::string>>; // sequence number, all texts

std::uint64_t number(const Bytes& file, std::size_t offset, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = width; i > 0; --i) {
        value = value << 8U | static_cast<unsigned char>(file[offset + i - 1]);
    }
    return value;
}

void put(Bytes& file, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        file[offset + i] = static_cast<char>(value >> (8 * i));
    }
}

struct Place {
    std::uint64_t begin;
    std::uint64_t end;
    bool isKnown;
};

Place placeOf(const Bytes& file) {
    const std::uint64_t headerSize = number(file, 16, 4);
    const std::uint64_t entrySize = number(file, 20, 4);
    const std::uint64_t ring = number(file, 28, 4);
    const bool hasRoom = headerSize >= 512 && entrySize >= 256 && ring % 8 == 0 && ring <= file.size() &&
                         headerSize + number(file, 24, 4) * entrySize <= ring;
    if (!hasRoom) {
        return {512, file.size(), false};
    }
    const std::uint64_t size = number(file, 32, 8);
    return {ring, size > file.size() - ring ? file.size() : ring + size, true};
}

// The size of a record with its zeros, 0 where none can lie.
std::uint64_t spaceAt(const Bytes& file, const Place& place, std::uint64_t offset) {
    if (offset + 56 > place.end) {
        return 0;
    }
    const std::uint64_t size = number(file, offset + 4, 4);
    std::uint64_t sum = 56;
    for (std::uint64_t i = 48; i < 56; i += 2) {
        sum += number(file, offset + i, 2);
    }
    const std::uint64_t space = (size + 7) / 8 * 8;
    return size == sum && size <= 56 + 3 * 1023 + 4095 && offset + space <= place.end ? space : 0;
}

std::uint32_t checksumAt(const Bytes& file, std::uint64_t offset, std::uint64_t space) {
    return XXH32(file.data() + offset + 4, space - 4, static_cast<XXH32_hash_t>(number(file, 40, 4)));
}

void complete(Bytes& file) {
    std::memcpy(file.data(), "SRLRING\n", 8);
    put(file, 8, 1);
    put(file, 12, XXH32(file.data() + 16, 112, 0));
    const Place place = placeOf(file);
    std::uint64_t space = 0;
    for (std::uint64_t offset = place.begin; offset + 56 <= place.end; offset += space != 0 ? space : 8) {
        space = spaceAt(file, place, offset);
        if (space != 0) {
            put(file, offset, checksumAt(file, offset, space));
        }
    }
}

struct Whole {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t sequence;
};

std::vector<Whole> wholeIn(const Bytes& file, const Place& place) {
    std::vector<Whole> whole;
    std::uint64_t space = 0;
    for (std::uint64_t offset = place.begin; offset + 56 <= place.end; offset += space != 0 ? space : 8) {
        space = spaceAt(file, place, offset);
        const bool isWhole = space != 0 && checksumAt(file, offset, space) == number(file, offset, 4);
        space = isWhole ? space : 0;
        if (isWhole && number(file, offset + 8, 8) != 0) {
            whole.push_back({offset, offset + space, number(file, offset + 8, 8)});
        }
    }
    return whole;
}

// Whether a lap ends too early with a record that has no later one of its lap behind it.
bool endsEarly(const std::vector<Whole>& whole, std::size_t last, const Place& place) {
    std::size_t first = last;
    while (first > 0 && whole[first - 1].sequence < whole[first].sequence) {
        --first;
    }
    return whole[first].begin + 7224 <= place.end && whole[0].begin == place.begin &&
           whole[last].sequence + 1 != whole[0].sequence;
}

struct Expected {
    Messages run;
    Messages older;
    Messages lost; // begin and end
    std::uint64_t newest = 0;
    bool isTorn = false;
};

// Looks at what lies before each record and behind the last one.
void findLost(Expected& expected, const std::vector<Whole>& whole, const Place& place, std::uint64_t torn) {
    for (std::size_t i = 0; i <= whole.size() && !whole.empty(); ++i) {
        const std::uint64_t begin = i == 0 ? place.begin : whole[i - 1].end;
        const std::uint64_t end = i == whole.size() ? place.end : whole[i].begin;
        const bool isExcused = begin == end || (expected.isTorn && begin >= torn && begin < torn + 7224);
        const bool isWithinLap = i > 0 && i < whole.size() && whole[i - 1].sequence < whole[i].sequence;
        const bool isEarlyEnd = i > 0 && !isWithinLap && whole[i - 1].sequence != expected.newest;
        if (!isExcused && (i == 0 || isWithinLap || (isEarlyEnd && endsEarly(whole, i - 1, place)))) {
            expected.lost.emplace_back(std::to_string(begin), std::to_string(end));
        }
    }
}

Expected expectedOf(const Bytes& file) {
    const Place place = placeOf(file);
    const std::vector<Whole> inPlace = wholeIn(file, place);
    std::multimap<std::uint64_t, Whole> whole;
    for (const Whole& found : inPlace) {
        whole.emplace(found.sequence, found);
    }
    Expected expected;
    expected.newest = whole.empty() ? 0 : whole.rbegin()->first;
    std::uint64_t next = expected.newest + 1;
    std::uint64_t torn = 0;
    for (const std::uint64_t offset : {whole.empty() ? place.begin : whole.rbegin()->second.end, place.begin}) {
        if (!expected.isTorn && offset + 16 <= place.end && number(file, offset + 8, 8) == next) {
            expected.isTorn = true;
            torn = offset;
        }
    }
    if (place.isKnown) {
        findLost(expected, inPlace, place, torn);
    }
    for (auto entry = whole.rbegin(); entry != whole.rend(); ++entry) {
        const std::uint64_t begin = entry->second.begin;
        const std::uint64_t size = number(file, begin + 4, 4);
        std::pair<std::string, std::string> message(std::to_string(entry->first),
                                                    std::string(file.data() + begin + 56, size - 56));
        const bool isNext = expected.older.empty() && entry->first + 1 == next;
        (isNext ? expected.run : expected.older).push_back(std::move(message));
        next = entry->first;
    }
    return expected;
}

// The newest first, as expectedOf has them.
Messages messagesOf(const sorrelctl::Records& records) {
    Messages messages;
    for (std::size_t i = records.size(); i > 0; --i) {
        const sorrelctl::Record record = records[i - 1];
        std::string texts;
        for (const std::string_view text : {record.thread, record.component, record.function, record.text}) {
            texts += text;
        }
        messages.emplace_back(std::to_string(record.sequence), texts);
    }
    return messages;
}

Messages lostOf(const sorrelctl::Ring& ring) {
    Messages lost;
    for (const sorrelctl::Stretch& stretch : ring.lost) {
        lost.emplace_back(std::to_string(stretch.begin), std::to_string(stretch.end));
    }
    return lost;
}

void writeAll(const sorrelctl::Ring& ring) {
    std::string out;
    sorrelctl::RecordFilter filter;
    filter.since.emplace("1h");
    filter.text.emplace("(a|b)+c");
    filter.components.emplace("n*;*t");
    appendInfo(out, "file", ring, true);
    lossesOf(ring);
    for (const auto format : {sorrelctl::Format::Text, sorrelctl::Format::Json, sorrelctl::Format::Trace}) {
        const auto output = sorrelctl::makeOutput(format);
        output->write(out, ring, ring.records);
        sorrelctl::Records chosen = ring.older;
        filter.choose(chosen);
        output->write(out, ring, chosen);
        output->finish(out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Bytes file(reinterpret_cast<const char*>(data) + 1, reinterpret_cast<const char*>(data) + size);
    if (data[0] != 0 && file.size() >= 512) {
        complete(file);
    }
    try {
        const sorrelctl::Ring ring = sorrelctl::readRing(file);
        const Expected expected = expectedOf(file);
        expectSame("run", messagesOf(ring.records), expected.run);
        expectSame("older messages", messagesOf(ring.older), expected.older);
        expectSame("lost messages", lostOf(ring), expected.lost);
        expectSame("newest", std::to_string(ring.newest), std::to_string(expected.newest));
        expectSame("torn", static_cast<int>(ring.isTorn), static_cast<int>(expected.isTorn));
        writeAll(ring);
    } catch (const sorrelctl::RingError&) {
        const bool isRing = file.size() >= 512 && std::memcmp(file.data(), "SRLRING\n\1\0\0", 12) == 0;
        expectSame("refusal", static_cast<int>(isRing), 0);
    }
    return 0;
}
