// Reads the ring files of the recorder. A file may be in use, damaged, or made up by somebody who means harm: nothing
// that stands in it is believed before it is checked.
#ifndef SORREL_TOOLS_RING_READER_HPP
#define SORREL_TOOLS_RING_READER_HPP

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sorrelctl {

// What is no ring, or cannot be read. The text does not name the file.
class RingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One message. The texts lie in the ring's bytes.
struct Record {
    std::uint64_t sequence = 0;
    std::int64_t seconds = 0;
    std::int32_t microseconds = 0;
    std::int32_t level = 0;
    std::uint32_t mask = 0;
    std::int32_t depth = 0;
    std::uint32_t threadId = 0;
    std::int32_t processId = 0;
    std::string_view thread;
    std::string_view component;
    std::string_view function;
    std::string_view text;
};

// Where a message lies in the file, which has at most 1 GiB.
struct RecordPlace {
    std::uint64_t sequence;
    std::uint32_t begin;
    std::uint32_t end; // where the next one may lie
};

// Messages of a ring, which may have a million: only their places are kept. They last as long as the ring.
class Records {
public:
    class Iterator {
    public:
        Iterator(const Records& records, std::size_t index) : m_records(records), m_index(index) {}
        Record operator*() const { return m_records[m_index]; }
        Iterator& operator++() {
            ++m_index;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return m_index != other.m_index; }

    private:
        const Records& m_records;
        std::size_t m_index;
    };

    Records() = default;
    Records(const char* file, std::vector<RecordPlace> places) : m_file(file), m_places(std::move(places)) {}

    bool empty() const { return m_places.empty(); }
    std::size_t size() const { return m_places.size(); }
    Record operator[](std::size_t index) const;
    Record front() const { return (*this)[0]; }
    Record back() const { return (*this)[size() - 1]; }
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

    void putBefore(const Records& older) {
        m_places.insert(m_places.begin(), older.m_places.begin(), older.m_places.end());
    }

    template <typename Predicate>
    void keepIf(Predicate isWanted) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < size(); ++i) {
            if (isWanted((*this)[i])) {
                m_places[kept++] = m_places[i];
            }
        }
        m_places.resize(kept);
    }

    void keepLast(std::uint64_t count) {
        if (count < size()) {
            m_places.erase(m_places.begin(), m_places.end() - static_cast<std::ptrdiff_t>(count));
        }
    }

private:
    const char* m_file = nullptr;
    std::vector<RecordPlace> m_places;
};

struct Component {
    std::string_view name;
    bool isMaskKnown = false;
    std::uint32_t mask = 0;
    std::uint64_t address = 0; // of the mask, in the process
    std::uint64_t messages = 0;
};

// A part of the file.
struct Stretch {
    std::size_t begin;
    std::size_t end;
};

struct Ring {
    std::vector<char> bytes;
    std::int32_t processId = 0;
    std::uint64_t startTime = 0;
    std::int64_t createdSeconds = 0;
    std::uint32_t createdMicroseconds = 0;
    std::uint32_t addressSize = 0;
    std::string_view bootId;
    std::string_view applicationName;
    bool hasEnded = false;
    std::uint64_t messages = 0; // as the process counted them
    std::uint64_t unlisted = 0;
    std::uint64_t cut = 0;
    std::uint32_t componentCapacity = 0;
    std::vector<Component> components;

    Records records;          // without a gap, the oldest first
    Records older;            // whole ones before a gap
    std::uint64_t newest = 0; // number of the newest whole one
    bool isTorn = false;      // behind the newest one another was begun

    std::vector<std::string> damages; // what is wrong, and at which byte
    std::vector<Stretch> lost;        // where messages are missing
};

// Throws RingError.
std::vector<char> readFile(const std::string& path);

// Throws RingError for what is no ring; damages leave what is whole.
Ring readRing(std::vector<char> bytes);

// What is missing in a ring, unless its process wrote while the file was copied; and at which byte.
std::vector<std::string> lossesOf(const Ring& ring);

// Whether the process that made a ring still runs, on this machine.
bool isAlive(const Ring& ring);

} // namespace sorrelctl

#endif // SORREL_TOOLS_RING_READER_HPP
