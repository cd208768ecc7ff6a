// The ring file of the recorder: where everything lies, and how it is stored and loaded. docs/RECORDER_FORMAT.md is its
// description in words. Used by the target that writes rings and by the tool that reads them.
#ifndef SORREL_TARGETS_RECORDER_FORMAT_HPP
#define SORREL_TARGETS_RECORDER_FORMAT_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <xxhash.h> // with XXH_INLINE_ALL: nothing to link

namespace recorder {

constexpr char kMagic[] = "SRLRING\n"; // eight bytes without the zero
constexpr std::size_t kMagicSize = 8;
constexpr std::uint32_t kVersion = 1;

// The header: offsets in the file.
namespace header {
constexpr std::size_t kMagicAt = 0; // stored last: a file that begins with it is complete
constexpr std::size_t kVersionAt = 8;
constexpr std::size_t kChecksumAt = 12; // of what never changes: from kFixedBegin to kFixedEnd, with the seed 0
constexpr std::size_t kFixedBegin = 16;
constexpr std::size_t kHeaderSizeAt = 16; // where the component table begins
constexpr std::size_t kComponentSizeAt = 20;
constexpr std::size_t kComponentCapacityAt = 24;
constexpr std::size_t kRingOffsetAt = 28;
constexpr std::size_t kRingSizeAt = 32; // 8 bytes
constexpr std::size_t kSeedAt = 40;     // of the checksums of records
constexpr std::size_t kProcessIdAt = 44;
constexpr std::size_t kStartTimeAt = 48; // 8 bytes: clock ticks between boot and start of the process
constexpr std::size_t kSecondsAt = 56;   // 8 bytes: when the ring was made
constexpr std::size_t kMicrosecondsAt = 64;
constexpr std::size_t kAddressSizeAt = 68; // of the process: 4 or 8 bytes
constexpr std::size_t kBootIdAt = 72;      // a text, filled up with zeros
constexpr std::size_t kBootIdSize = 40;
constexpr std::size_t kFixedEnd = 128;
constexpr std::size_t kStateAt = 128;
constexpr std::size_t kNameLengthAt = 132; // of the application's name; 0 while it changes
constexpr std::size_t kMessagesAt = 136;   // 8 bytes: messages so far
constexpr std::size_t kUnlistedAt = 144;   // 8 bytes: of them, those of components that found no room in the table
constexpr std::size_t kCutAt = 152;        // 8 bytes: of them, those of which something was too long
constexpr std::size_t kNameAt = 160;
constexpr std::size_t kNameSize = 256;
constexpr std::size_t kSize = 512;

constexpr std::uint32_t kInUse = 1;
constexpr std::uint32_t kEnded = 2; // the target was released
} // namespace header

// An entry of the component table: offsets in the entry.
namespace component {
constexpr std::size_t kNameLengthAt = 0; // stored last; 0 when the entry is free, and those behind it
constexpr std::size_t kMaskAt = 4;       // when the target was last told
constexpr std::size_t kAddressAt = 8;    // 8 bytes: where the mask lies in the process; 0 when that is not known
constexpr std::size_t kMessagesAt = 16;  // 8 bytes
constexpr std::size_t kFlagsAt = 24;
constexpr std::size_t kNameAt = 32;
constexpr std::size_t kNameSize = 224;
constexpr std::size_t kSize = 256;

constexpr std::uint32_t kMaskIsKnown = 1;
} // namespace component

// A record: offsets in the record. Behind these lie the four texts, without zeros and in the order of their lengths.
namespace record {
constexpr std::size_t kAlignment = 8;
constexpr std::size_t kChecksumAt = 0; // of all that follows, stored last
constexpr std::size_t kSizeAt = 4;     // of the record, with this part, without the zeros that fill it up
constexpr std::size_t kSequenceAt = 8; // 8 bytes: 1 for the first message; stored first
constexpr std::size_t kSecondsAt = 16; // 8 bytes
constexpr std::size_t kMicrosecondsAt = 24;
constexpr std::size_t kLevelAt = 28;
constexpr std::size_t kMaskAt = 32;
constexpr std::size_t kDepthAt = 36;
constexpr std::size_t kThreadIdAt = 40;
constexpr std::size_t kProcessIdAt = 44;
constexpr std::size_t kThreadLengthAt = 48; // 2 bytes each, as the next three
constexpr std::size_t kComponentLengthAt = 50;
constexpr std::size_t kFunctionLengthAt = 52;
constexpr std::size_t kTextLengthAt = 54;
constexpr std::size_t kTextsAt = 56;

constexpr std::size_t kLongestName = 1023; // of threads, components and functions
constexpr std::size_t kLongestText = 4095;
constexpr std::size_t kLargest = kTextsAt + 3 * kLongestName + kLongestText;
} // namespace record

constexpr std::size_t alignedSize(std::size_t size) {
    return (size + record::kAlignment - 1) / record::kAlignment * record::kAlignment;
}

// A size as four bytes hold it. Nothing in a ring is larger.
constexpr std::uint32_t inFourBytes(std::size_t size) {
    return size & 0xffffffffU;
}

// The bytes of a number from the least significant one on, as a number of this machine; and the other way round.
template <typename Number>
Number littleEndian(Number number) {
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    std::reverse(bytes, bytes + sizeof number);
    std::memcpy(&number, bytes, sizeof number);
#endif
    return number;
}

// Stored at any place.
template <typename Number>
void store(char* to, Number number) {
    number = littleEndian(number);
    std::memcpy(to, &number, sizeof number);
}

template <typename Number>
Number load(const char* from) {
    Number number = 0;
    std::memcpy(&number, from, sizeof number);
    return littleEndian(number);
}

// As store, but in one piece, and after everything that was stored before: for what says that the rest is there. The
// place has to be aligned.
template <typename Number>
void publish(void* to, Number number) {
    __atomic_store_n(static_cast<Number*>(to), littleEndian(number), __ATOMIC_RELEASE);
}

inline std::uint32_t checksum(const char* bytes, std::size_t size, std::uint32_t seed) {
    return XXH32(bytes, size, seed);
}

inline std::uint32_t headerChecksum(const char* file) {
    return checksum(file + header::kFixedBegin, header::kFixedEnd - header::kFixedBegin, 0);
}

// With the zeros that fill the record up.
inline std::uint32_t recordChecksum(const char* start, std::size_t size, std::uint32_t seed) {
    return checksum(start + record::kSizeAt, alignedSize(size) - record::kSizeAt, seed);
}

} // namespace recorder

#endif // SORREL_TARGETS_RECORDER_FORMAT_HPP
