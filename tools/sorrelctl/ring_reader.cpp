// From the bytes of a ring file to its messages.
#include "ring_reader.hpp"

#include "loss_finder.hpp"
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
    std::size_t end;
    bool isKnown;
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
        return {header::kSize, ring.bytes.size(), false};
    }
    ring.componentCapacity = static_cast<std::uint32_t>(capacity);
    readComponents(ring, headerSize, entrySize);
    const std::uint64_t available = fileSize - ringOffset;
    if (ringSize > available) {
        ring.damages.push_back(
            fmt::format("byte {}: the file ends, the ring has {} bytes more", fileSize, ringSize - available));
    }
    const std::uint64_t end = ringOffset + std::min(ringSize, available);
    return {static_cast<std::size_t>(ringOffset), static_cast<std::size_t>(end), true};
}

// The size that the record at a place of the file has with its zeros; 0 when no whole one lies there.
std::size_t wholeSize(const char* start, std::size_t available, std::uint32_t seed) {
    const auto size = load<std::uint32_t>(start + record::kSizeAt);
    if (size < record::kTextsAt || size > record::kLargest || recorder::alignedSize(size) > available) {
        return 0;
    }
    std::size_t sum = record::kTextsAt;
    for (const std::size_t lengthAt :
         {record::kThreadLengthAt, record::kComponentLengthAt, record::kFunctionLengthAt, record::kTextLengthAt}) {
        sum += load<std::uint16_t>(start + lengthAt);
    }
    const bool isWhole =
        sum == size && load<std::uint32_t>(start + record::kChecksumAt) == recorder::recordChecksum(start, size, seed);
    return isWhole ? recorder::alignedSize(size) : 0;
}

// In the order of their places.
std::vector<RecordPlace> wholeRecords(const char* file, Place ring, std::uint32_t seed) {
    std::vector<RecordPlace> found;
    std::size_t offset = ring.begin;
    while (offset < ring.end && ring.end - offset >= record::kTextsAt) {
        const std::size_t size = wholeSize(file + offset, ring.end - offset, seed);
        const std::size_t end = offset + (size != 0 ? size : record::kAlignment);
        const auto sequence = load<std::uint64_t>(file + offset + record::kSequenceAt);
        if (size != 0 && sequence != 0) {
            found.push_back({sequence, recorder::inFourBytes(offset), recorder::inFourBytes(end)});
        }
        offset = end;
    }
    return found;
}

// Divides the whole records at the last gap before the newest one. Those of earlier laps lie where no later record did,
// at the end of the ring: whole, but not next to any other.
void divide(Ring& ring, std::vector<RecordPlace> places) {
    std::sort(places.begin(), places.end(), [](const RecordPlace& a, const RecordPlace& b) {
        return a.sequence != b.sequence ? a.sequence < b.sequence : a.begin < b.begin;
    });
    auto first = places.end();
    while (first != places.begin() && (first == places.end() || std::prev(first)->sequence + 1 == first->sequence)) {
        --first;
    }
    ring.older = {ring.bytes.data(), {places.begin(), first}};
    places.erase(places.begin(), first);
    ring.records = {ring.bytes.data(), std::move(places)};
}

bool isBegun(const char* file, Place ring, std::size_t offset, std::uint64_t sequence) {
    constexpr std::size_t kEnd = record::kSequenceAt + sizeof sequence;
    return offset <= ring.end && ring.end - offset >= kEnd &&
           load<std::uint64_t>(file + offset + record::kSequenceAt) == sequence;
}

// Where the record was begun that follows the newest one.
std::optional<std::size_t> tornPlace(const char* file, Place ring, const RecordPlace& newest) {
    for (const std::size_t offset : {std::size_t{newest.end}, ring.begin}) {
        if (isBegun(file, ring, offset, newest.sequence + 1)) {
            return offset;
        }
    }
    return std::nullopt;
}

void readRecords(Ring& ring, Place place) {
    const char* const file = ring.bytes.data();
    std::vector<RecordPlace> places = wholeRecords(file, place, load<std::uint32_t>(file + header::kSeedAt));
    const RecordPlace none = {0, 0, recorder::inFourBytes(place.begin)};
    const RecordPlace* newest = &none;
    for (const RecordPlace& found : places) {
        newest = found.sequence >= newest->sequence ? &found : newest;
    }
    const std::optional<std::size_t> torn = tornPlace(file, place, *newest);
    ring.isTorn = torn.has_value();
    ring.newest = newest->sequence;
    if (place.isKnown && !places.empty()) {
        ring.lost = LossFinder({place.begin, place.end}, places, newest->sequence, torn).find();
    }
    divide(ring, std::move(places));
}

} // namespace

Record Records::operator[](std::size_t index) const {
    const RecordPlace& place = m_places.at(index);
    const char* const start = m_file + place.begin;
    const std::size_t thread = load<std::uint16_t>(start + record::kThreadLengthAt);
    const std::size_t component = load<std::uint16_t>(start + record::kComponentLengthAt);
    const std::size_t function = load<std::uint16_t>(start + record::kFunctionLengthAt);
    const std::size_t text = load<std::uint16_t>(start + record::kTextLengthAt);
    Record read;
    read.sequence = place.sequence;
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
    return read;
}

Ring readRing(std::vector<char> bytes) {
    checkBegin(bytes);
    Ring ring;
    ring.bytes = std::move(bytes);
    readHeader(ring);
    const Place place = readLayout(ring);
    readRecords(ring, place);
    return ring;
}

std::vector<std::string> lossesOf(const Ring& ring) {
    std::vector<std::string> losses;
    for (const Stretch& lost : ring.lost) {
        losses.push_back(fmt::format("byte {}: no whole record up to byte {}", lost.begin, lost.end));
    }
    if (ring.newest < ring.messages) {
        losses.push_back(fmt::format("byte {}: {} messages are counted, the newest whole one is number {}",
                                     header::kMessagesAt, ring.messages, ring.newest));
    }
    return losses;
}

bool isAlive(const Ring& ring) {
    return !ring.hasEnded && ring.startTime != 0 && ring.bootId == recorder::bootId() &&
           recorder::startTimeOf(ring.processId) == ring.startTime;
}

} // namespace sorrelctl
