// A ring of records in a mapped file, as a process writes it.
//
// The process may end at any instruction, and its file then stays as it is: the kernel keeps what was stored, in the
// order of the program. So what says that something is whole is stored after it, and the compiler is kept from moving
// it: a checksum behind its record, a length behind its name, the magic behind the header. (What a power cut leaves of
// a file is not known.) docs/RECORDER_FORMAT.md describes the file.
#ifndef SORREL_TARGETS_RECORDER_RING_HPP
#define SORREL_TARGETS_RECORDER_RING_HPP

#include "recorder_file.hpp"

#include <sorrel/component.hpp>
#include <sorrel/target_library.hpp>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <sys/random.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>
#include <unordered_map>
#include <utility>

namespace recorder {
namespace {

class Ring {
public:
    // Throws std::system_error when there is no room, no right, ...
    Ring(const RingName& name, std::size_t size) : m_file(name, size), m_memory(m_file.memory()) {
        constexpr std::size_t kShareOfComponents = 16; // of the file
        m_capacity = inFourBytes(size / kShareOfComponents / component::kSize);
        const std::size_t ringOffset = header::kSize + m_capacity * component::kSize;
        m_ring = m_memory + ringOffset;
        m_ringSize = size - ringOffset;
        m_seed = newSeed(m_memory);
        m_index.reserve(m_capacity);
        writeHeader(ringOffset);
    }

    // The process goes on without this ring.
    void end() { publish(m_memory + header::kStateAt, header::kEnded); }

    void setApplicationName(const std::string& name) {
        publish(m_memory + header::kNameLengthAt, std::uint32_t{0});
        std::atomic_thread_fence(std::memory_order_seq_cst); // nothing of the name before the zero
        const std::size_t length = std::min(name.size(), header::kNameSize);
        std::copy_n(name.data(), length, m_memory + header::kNameAt);
        publish(m_memory + header::kNameLengthAt, inFourBytes(length));
    }

    void announce(const sorrel_component& announced) {
        char* const entry = entryOf(announced.name);
        if (entry != nullptr) {
            store(entry + component::kMaskAt, __atomic_load_n(&announced.mask, __ATOMIC_RELAXED));
            store<std::uint64_t>(entry + component::kAddressAt, addressOf(&announced.mask));
            publish(entry + component::kFlagsAt, component::kMaskIsKnown);
        }
    }

    // The components that another ring knows, for the child of a process: there they lie at the same addresses.
    void takeComponentsOf(const Ring& other) {
        for (const auto& [name, theirs] : other.m_index) {
            char* const entry = entryOf(name);
            if (entry != nullptr) {
                std::memcpy(entry + component::kMaskAt, theirs + component::kMaskAt,
                            component::kMessagesAt - component::kMaskAt);
                publish(entry + component::kFlagsAt, load<std::uint32_t>(theirs + component::kFlagsAt));
            }
        }
    }

    void write(const sorrel::Message& message, std::uint32_t threadId) {
        const std::size_t threadLength = std::min(message.threadName.size(), record::kLongestName);
        const std::size_t componentLength = std::min(message.componentName.size(), record::kLongestName);
        const std::size_t functionLength = std::min(message.functionName.size(), record::kLongestName);
        const std::size_t textLength = std::min(message.text.size(), record::kLongestText);
        const std::size_t size = record::kTextsAt + threadLength + componentLength + functionLength + textLength;
        const std::size_t space = alignedSize(size);
        if (m_ringSize - m_position < space) { // never across the end: what lies there may stay
            m_position = 0;
        }
        char* const start = m_ring + m_position;

        store(start + record::kSequenceAt, m_messages + 1);
        std::atomic_signal_fence(std::memory_order_seq_cst); // from here on the old record is not taken for whole
        store(start + space - record::kAlignment, std::uint64_t{0});
        store(start + record::kSizeAt, inFourBytes(size));
        store<std::int64_t>(start + record::kSecondsAt, message.seconds);
        store<std::int32_t>(start + record::kMicrosecondsAt, message.microseconds);
        store<std::int32_t>(start + record::kLevelAt, message.level.numeric);
        store<std::uint32_t>(start + record::kMaskAt, message.level.mask);
        store<std::int32_t>(start + record::kDepthAt, message.depth);
        store(start + record::kThreadIdAt, threadId);
        store<std::int32_t>(start + record::kProcessIdAt, message.processId);
        store(start + record::kThreadLengthAt, static_cast<std::uint16_t>(threadLength));
        store(start + record::kComponentLengthAt, static_cast<std::uint16_t>(componentLength));
        store(start + record::kFunctionLengthAt, static_cast<std::uint16_t>(functionLength));
        store(start + record::kTextLengthAt, static_cast<std::uint16_t>(textLength));
        char* texts = start + record::kTextsAt; // (copy_n, since g++ copies short texts slowly where it sees memcpy)
        texts = std::copy_n(message.threadName.data(), threadLength, texts);
        texts = std::copy_n(message.componentName.data(), componentLength, texts);
        texts = std::copy_n(message.functionName.data(), functionLength, texts);
        std::copy_n(message.text.data(), textLength, texts);
        publish(start + record::kChecksumAt, recordChecksum(start, size, m_seed));

        m_position += space;
        const bool isCut = textLength != message.text.size() || functionLength != message.functionName.size() ||
                           componentLength != message.componentName.size() || threadLength != message.threadName.size();
        countMessage(message.componentName, isCut);
    }

private:
    // Early at boot the kernel has no random numbers yet.
    static std::uint32_t newSeed(const void* place) {
        std::uint32_t seed = 0;
        if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof seed)) {
            timespec now = {};
            clock_gettime(CLOCK_REALTIME, &now);
            const std::uint64_t parts[] = {static_cast<std::uint64_t>(now.tv_sec),
                                           static_cast<std::uint64_t>(now.tv_nsec),
                                           static_cast<std::uint64_t>(getpid()), addressOf(place)};
            seed = checksum(reinterpret_cast<const char*>(parts), sizeof parts, 0);
        }
        return seed;
    }

    void writeHeader(std::size_t ringOffset) {
        timeval now = {};
        gettimeofday(&now, nullptr);
        const std::string boot = bootId();
        store(m_memory + header::kVersionAt, kVersion);
        store(m_memory + header::kHeaderSizeAt, inFourBytes(header::kSize));
        store(m_memory + header::kComponentSizeAt, inFourBytes(component::kSize));
        store(m_memory + header::kComponentCapacityAt, m_capacity);
        store(m_memory + header::kRingOffsetAt, inFourBytes(ringOffset));
        store<std::uint64_t>(m_memory + header::kRingSizeAt, m_ringSize);
        store(m_memory + header::kSeedAt, m_seed);
        store<std::int32_t>(m_memory + header::kProcessIdAt, getpid());
        store(m_memory + header::kStartTimeAt, startTimeOf(getpid()));
        store<std::int64_t>(m_memory + header::kSecondsAt, now.tv_sec);
        store(m_memory + header::kMicrosecondsAt, static_cast<std::uint32_t>(now.tv_usec));
        store(m_memory + header::kAddressSizeAt, inFourBytes(sizeof(void*)));
        std::memcpy(m_memory + header::kBootIdAt, boot.data(), std::min(boot.size(), header::kBootIdSize));
        store(m_memory + header::kStateAt, header::kInUse);
        store(m_memory + header::kChecksumAt, headerChecksum(m_memory));
        std::uint64_t magic = 0;
        std::memcpy(&magic, kMagic, kMagicSize);
        __atomic_store_n(wordAt(m_memory + header::kMagicAt), magic, __ATOMIC_RELEASE);
    }

    static std::uint64_t* wordAt(void* place) { return static_cast<std::uint64_t*>(place); }
    static std::uintptr_t addressOf(const void* object) { return reinterpret_cast<std::uintptr_t>(object); }

    static void increase(char* counter) { publish(counter, load<std::uint64_t>(counter) + 1); }

    void countMessage(const std::string& componentName, bool isCut) {
        publish(m_memory + header::kMessagesAt, ++m_messages);
        char* const entry = entryOf(componentName);
        increase(entry != nullptr ? entry + component::kMessagesAt : m_memory + header::kUnlistedAt);
        if (isCut) {
            increase(m_memory + header::kCutAt);
        }
    }

    // The entry of a component, made at its first appearance. Null when there is no room for it.
    char* entryOf(const std::string& name) {
        if (m_lastUsed != nullptr && m_lastUsed->first == name) {
            return m_lastUsed->second;
        }
        const auto known = m_index.find(name);
        if (known != m_index.end()) {
            m_lastUsed = &*known;
            return known->second;
        }
        if (m_index.size() == m_capacity || name.empty()) { // a length of 0 means that the entry is free
            return nullptr;
        }
        char* const entry = m_memory + header::kSize + m_index.size() * component::kSize;
        try {
            m_index.emplace(name, entry);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        const std::size_t length = std::min(name.size(), component::kNameSize);
        std::copy_n(name.data(), length, entry + component::kNameAt);
        publish(entry + component::kNameLengthAt, inFourBytes(length));
        return entry;
    }

    MappedFile m_file;
    char* const m_memory;
    std::uint32_t m_capacity = 0; // of the component table
    char* m_ring = nullptr;
    std::size_t m_ringSize = 0;
    std::size_t m_position = 0; // of the next record
    std::uint32_t m_seed = 0;
    std::uint64_t m_messages = 0;
    std::unordered_map<std::string, char*> m_index;                  // the entries of the components
    const std::pair<const std::string, char*>* m_lastUsed = nullptr; // of them: the next message is often of the same
};

} // namespace
} // namespace recorder

#endif // SORREL_TARGETS_RECORDER_RING_HPP
