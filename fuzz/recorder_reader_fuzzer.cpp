// Ring files, beside an oracle that was written from docs/RECORDER_FORMAT.md: the run of messages, what lies before it,
// the torn one. Then all that sorrelctl writes about them.
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
};

Place placeOf(const Bytes& file) {
    const std::uint64_t headerSize = number(file, 16, 4);
    const std::uint64_t entrySize = number(file, 20, 4);
    const std::uint64_t ring = number(file, 28, 4);
    const bool hasRoom = headerSize >= 512 && entrySize >= 256 && ring % 8 == 0 && ring <= file.size() &&
                         headerSize + number(file, 24, 4) * entrySize <= ring;
    if (!hasRoom) {
        return {512, file.size()};
    }
    const std::uint64_t size = number(file, 32, 8);
    return {ring, size > file.size() - ring ? file.size() : ring + size};
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

struct Expected {
    Messages run;
    Messages older;
    bool isTorn = false;
};

Expected expectedOf(const Bytes& file) {
    const Place place = placeOf(file);
    std::multimap<std::uint64_t, std::uint64_t> whole; // sequence number, offset
    std::uint64_t space = 0;
    for (std::uint64_t offset = place.begin; offset + 56 <= place.end; offset += space != 0 ? space : 8) {
        space = spaceAt(file, place, offset);
        const bool isWhole = space != 0 && checksumAt(file, offset, space) == number(file, offset, 4);
        space = isWhole ? space : 0;
        if (isWhole && number(file, offset + 8, 8) != 0) {
            whole.emplace(number(file, offset + 8, 8), offset);
        }
    }
    Expected expected;
    std::uint64_t next = whole.empty() ? 1 : whole.rbegin()->first + 1;
    const std::uint64_t behind = whole.empty() ? place.begin : whole.rbegin()->second;
    const std::uint64_t end = whole.empty() ? behind : behind + spaceAt(file, place, behind);
    for (const std::uint64_t offset : {end, place.begin}) {
        expected.isTorn = expected.isTorn || (offset + 16 <= place.end && number(file, offset + 8, 8) == next);
    }
    for (auto entry = whole.rbegin(); entry != whole.rend(); ++entry) {
        const std::uint64_t begin = entry->second;
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
Messages messagesOf(const std::vector<sorrelctl::Record>& records) {
    Messages messages;
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
        std::string texts;
        for (const std::string_view text : {record->thread, record->component, record->function, record->text}) {
            texts += text;
        }
        messages.emplace_back(std::to_string(record->sequence), texts);
    }
    return messages;
}

void writeAll(const sorrelctl::Ring& ring) {
    std::string out;
    sorrelctl::RecordFilter filter;
    filter.since.emplace("1h");
    filter.text.emplace("(a|b)+c");
    filter.components.emplace("n*;*t");
    appendInfo(out, "file", ring, true);
    for (const auto format : {sorrelctl::Format::Text, sorrelctl::Format::Json, sorrelctl::Format::Trace}) {
        const auto output = sorrelctl::makeOutput(format);
        output->write(out, ring, ring.records);
        output->write(out, ring, filter.choose(ring.older));
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
        expectSame("torn", static_cast<int>(ring.isTorn), static_cast<int>(expected.isTorn));
        writeAll(ring);
    } catch (const sorrelctl::RingError&) {
        const bool isRing = file.size() >= 512 && std::memcmp(file.data(), "SRLRING\n\1\0\0", 12) == 0;
        expectSame("refusal", static_cast<int>(isRing), 0);
    }
    return 0;
}
