// From the bytes of a ring file to its messages.
#include "ring_reader.hpp"

#include "recorder_format.hpp"
#include "recorder_process.hpp"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <optional>
#include <utility>

namespace sorrelctl {

namespace {

using recorder::load;
namespace header = recorder::header;
namespace component = recorder::component;
namespace record = recorder::record;

// The place of the ring in the file, which lies inside the file whatever the header says.
struct Place {
    std::size_t begin;
    std::size_t size;
};

void checkBegin(const std::vector<char>& bytes) {
    if (bytes.size() < header::kSize) {
        throw RingError(fmt::format("is no ring: it has {} bytes, a header has {}", bytes.size(), header::kSize));
    }
    if (std::memcmp(bytes.data(), recorder::kMagic, recorder::kMagicSize) != 0) {
        const bool isEmpty = std::all_of(bytes.begin(), bytes.begin() + header::kSize, [](char c) { return c == 0; });
        throw RingError(isEmpty ? "is no ring: its process ended before the header was written"
                                : "is no ring: it does not begin with SRLRING");
    }
    const auto version = load<std::uint32_t>(bytes.data() + header::kVersionAt);
    if (version != recorder::kVersion) {
        throw RingError(
            fmt::format("is a ring of version {}; this program knows version {}", version, recorder::kVersion));
    }
}

// A text of a fixed place that is filled up with zeros.
std::string_view paddedText(const char* begin, std::size_t size) {
    return {begin, strnlen(begin, size)};
}

void readHeader(Ring& ring) {
    const char* const begin = ring.bytes.data();
    if (load<std::uint32_t>(begin + header::kChecksumAt) != recorder::headerChecksum(begin)) {
        ring.damages.push_back(fmt::format("bytes {} to {}: the header does not match its checksum",
                                           header::kFixedBegin, header::kFixedEnd - 1));
    }
    ring.processId = load<std::int32_t>(begin + header::kProcessIdAt);
    ring.startTime = load<std::uint64_t>(begin + header::kStartTimeAt);
    ring.createdSeconds = load<std::int64_t>(begin + header::kSecondsAt);
    ring.createdMicroseconds = load<std::uint32_t>(begin + header::kMicrosecondsAt);
    ring.addressSize = load<std::uint32_t>(begin + header::kAddressSizeAt);
    ring.bootId = paddedText(begin + header::kBootIdAt, header::kBootIdSize);
    ring.hasEnded = load<std::uint32_t>(begin + header::kStateAt) == header::kEnded;
    ring.messages = load<std::uint64_t>(begin + header::kMessagesAt);
    ring.unlisted = load<std::uint64_t>(begin + header::kUnlistedAt);
    ring.cut = load<std::uint64_t>(begin + header::kCutAt);
    const auto nameLength = load<std::uint32_t>(begin + header::kNameLengthAt);
    if (nameLength > header::kNameSize) {
        ring.damages.push_back(
            fmt::format("byte {}: an application name of {} bytes", header::kNameLengthAt, nameLength));
    } else {
        ring.applicationName = {begin + header::kNameAt, nameLength};
    }
}

void readComponents(Ring& ring, std::uint64_t tableBegin, std::uint64_t entrySize) {
    for (std::uint32_t i = 0; i < ring.componentCapacity; ++i) {
        const std::uint64_t offset = tableBegin + i * entrySize;
        const char* const entry = ring.bytes.data() + offset;
        const auto nameLength = load<std::uint32_t>(entry + component::kNameLengthAt);
        if (nameLength == 0) {
            return;
        }
        if (nameLength > component::kNameSize) {
            ring.damages.push_back(fmt::format("byte {}: a component name of {} bytes", offset, nameLength));
            continue;
        }
        Component read;
        read.name = {entry + component::kNameAt, nameLength};
        read.isMaskKnown = (load<std::uint32_t>(entry + component::kFlagsAt) & component::kMaskIsKnown) != 0;
        read.mask = load<std::uint32_t>(entry + component::kMaskAt);
        read.address = load<std::uint64_t>(entry + component::kAddressAt);
        read.messages = load<std::uint64_t>(entry + component::kMessagesAt);
        ring.components.push_back(read);
    }
}

// Reads the component table and finds the ring. Where the header cannot be right, the whole file is searched.
Place readLayout(Ring& ring) {
    const char* const begin = ring.bytes.data();
    const std::uint64_t fileSize = ring.bytes.size();
    const std::uint64_t headerSize = load<std::uint32_t>(begin + header::kHeaderSizeAt);
    const std::uint64_t entrySize = load<std::uint32_t>(begin + header::kComponentSizeAt);
    const std::uint64_t capacity = load<std::uint32_t>(begin + header::kComponentCapacityAt);
    const std::uint64_t ringOffset = load<std::uint32_t>(begin + header::kRingOffsetAt);
    const auto ringSize = load<std::uint64_t>(begin + header::kRingSizeAt);
    const bool isTableInside = headerSize >= header::kSize && entrySize >= component::kSize &&
                               ringOffset >= headerSize && capacity <= (ringOffset - headerSize) / entrySize;
    const bool isPossible = isTableInside && ringOffset % record::kAlignment == 0 && ringOffset <= fileSize;
    if (!isPossible) {
        ring.damages.push_back(fmt::format("bytes {} to {}: no such component table, no such ring",
                                           header::kHeaderSizeAt, header::kRingSizeAt + sizeof ringSize - 1));
        return {header::kSize, ring.bytes.size() - header::kSize};
    }
    ring.componentCapacity = static_cast<std::uint32_t>(capacity);
    readComponents(ring, headerSize, entrySize);
    const std::uint64_t available = fileSize - ringOffset;
    if (ringSize > available) {
        ring.damages.push_back(
            fmt::format("byte {}: the file ends, the ring has {} bytes more", fileSize, ringSize - available));
    }
    return {static_cast<std::size_t>(ringOffset), static_cast<std::size_t>(std::min(ringSize, available))};
}

// The record at an offset of the ring, if a whole one lies there.
std::optional<Record> recordAt(const char* ringBegin, std::size_t ringSize, std::size_t offset, std::uint32_t seed) {
    const char* const start = ringBegin + offset;
    const auto size = load<std::uint32_t>(start + record::kSizeAt);
    if (size < record::kTextsAt || size > record::kLargest || recorder::alignedSize(size) > ringSize - offset) {
        return std::nullopt;
    }
    const std::size_t thread = load<std::uint16_t>(start + record::kThreadLengthAt);
    const std::size_t component = load<std::uint16_t>(start + record::kComponentLengthAt);
    const std::size_t function = load<std::uint16_t>(start + record::kFunctionLengthAt);
    const std::size_t text = load<std::uint16_t>(start + record::kTextLengthAt);
    if (record::kTextsAt + thread + component + function + text != size ||
        load<std::uint32_t>(start + record::kChecksumAt) != recorder::recordChecksum(start, size, seed)) {
        return std::nullopt;
    }
    Record read;
    read.sequence = load<std::uint64_t>(start + record::kSequenceAt);
    read.seconds = load<std::int64_t>(start + record::kSecondsAt);
    read.microseconds = load<std::int32_t>(start + record::kMicrosecondsAt);
    read.level = load<std::int32_t>(start + record::kLevelAt);
    read.mask = load<std::uint32_t>(start + record::kMaskAt);
    read.depth = load<std::int32_t>(start + record::kDepthAt);
    read.threadId = load<std::uint32_t>(start + record::kThreadIdAt);
    read.processId = load<std::int32_t>(start + record::kProcessIdAt);
    const char* const texts = start + record::kTextsAt;
    read.thread = {texts, thread};
    read.component = {texts + thread, component};
    read.function = {texts + thread + component, function};
    read.text = {texts + thread + component + function, text};
    read.end = offset + recorder::alignedSize(size);
    return read;
}

std::vector<Record> wholeRecords(const char* ringBegin, std::size_t ringSize, std::uint32_t seed) {
    std::vector<Record> found;
    std::size_t offset = 0;
    while (offset < ringSize && ringSize - offset >= record::kTextsAt) {
        const std::optional<Record> read = recordAt(ringBegin, ringSize, offset, seed);
        if (read && read->sequence != 0) {
            found.push_back(*read);
        }
        offset = read ? read->end : offset + record::kAlignment;
    }
    return found;
}

// Divides the whole records at the last gap before the newest one. Those of earlier laps lie where no later record did,
// at the end of the ring: whole, but not next to any other.
void divide(Ring& ring, std::vector<Record> whole) {
    std::stable_sort(whole.begin(), whole.end(),
                     [](const Record& a, const Record& b) { return a.sequence < b.sequence; });
    auto first = whole.end();
    while (first != whole.begin() && (first == whole.end() || std::prev(first)->sequence + 1 == first->sequence)) {
        --first;
    }
    ring.older.assign(whole.begin(), first);
    ring.records.assign(first, whole.end());
}

bool isBegun(const char* ringBegin, std::size_t ringSize, std::size_t offset, std::uint64_t sequence) {
    constexpr std::size_t kEnd = record::kSequenceAt + sizeof sequence;
    return offset <= ringSize && ringSize - offset >= kEnd &&
           load<std::uint64_t>(ringBegin + offset + record::kSequenceAt) == sequence;
}

} // namespace

Ring readRing(std::vector<char> bytes) {
    checkBegin(bytes);
    Ring ring;
    ring.bytes = std::move(bytes);
    readHeader(ring);
    const Place place = readLayout(ring);
    const char* const begin = ring.bytes.data() + place.begin;
    divide(ring, wholeRecords(begin, place.size, load<std::uint32_t>(ring.bytes.data() + header::kSeedAt)));
    const std::uint64_t next = ring.records.empty() ? 1 : ring.records.back().sequence + 1;
    const std::size_t behindNewest = ring.records.empty() ? 0 : ring.records.back().end;
    ring.isTorn = isBegun(begin, place.size, behindNewest, next) || isBegun(begin, place.size, 0, next);
    return ring;
}

bool isAlive(const Ring& ring) {
    return !ring.hasEnded && ring.startTime != 0 && ring.bootId == recorder::bootId() &&
           recorder::startTimeOf(ring.processId) == ring.startTime;
}

} // namespace sorrelctl
