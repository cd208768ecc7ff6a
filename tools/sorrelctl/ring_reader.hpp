// Reads the ring files of the recorder. A file may be in use, damaged, or made up by somebody who means harm: nothing
// that stands in it is believed before it is checked.
#ifndef SORREL_TOOLS_RING_READER_HPP
#define SORREL_TOOLS_RING_READER_HPP

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
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
    std::size_t end = 0; // where the next one may lie in the ring
};

struct Component {
    std::string_view name;
    bool isMaskKnown = false;
    std::uint32_t mask = 0;
    std::uint64_t address = 0; // of the mask, in the process
    std::uint64_t messages = 0;
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

    std::vector<Record> records; // without a gap, the oldest first
    std::vector<Record> older;   // whole ones behind a gap
    bool isTorn = false;         // behind the newest one another was begun

    std::vector<std::string> damages; // what is wrong, and at which byte
};

// Throws RingError.
std::vector<char> readFile(const std::string& path);

// Throws RingError for what is no ring; damages leave what is whole.
Ring readRing(std::vector<char> bytes);

// Whether the process that made a ring still runs, on this machine.
bool isAlive(const Ring& ring);

} // namespace sorrelctl

#endif // SORREL_TOOLS_RING_READER_HPP
