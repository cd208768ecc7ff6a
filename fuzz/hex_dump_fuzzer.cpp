// Lines of hex dumps, beside a plain rendering with streams.
#include <sorrel/logger.hpp>

#include "support/difference.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <sanitizer/asan_interface.h>
#include <sstream>
#include <sys/mman.h>

namespace {

constexpr std::size_t kLineBytes = 16;
constexpr std::size_t kBlockSize = (std::size_t{1} << 32U) + kLineBytes;
constexpr std::size_t kGuardSize = 16; // behind the bytes, where nothing may be read

std::string rendered(unsigned int offset, const std::string& bytes) {
    std::ostringstream line;
    line << "0x" << std::hex << std::setfill('0') << std::setw(8) << offset << " - ";
    std::string characters;
    for (const char character : bytes) {
        const unsigned int byte = static_cast<unsigned char>(character);
        line << std::setw(2) << byte << ' ';
        characters += byte < 0x20 || byte > 0x7f ? '.' : character;
    }
    return line.str() + std::string((kLineBytes - bytes.size()) * 3, ' ') + "| " + characters;
}

// Every offset of 32 bits lies in it; the system gives memory only to what is written.
unsigned char* makeBlock() {
    void* const block = mmap(nullptr, kBlockSize + kGuardSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED) {
        std::perror("mmap");
        std::abort();
    }
    return static_cast<unsigned char*>(block);
}

// Gives the memory of the pages around the bytes back.
void forget(unsigned char* bytes) {
    constexpr std::uintptr_t kPageSize = 4096;
    unsigned char* const page = bytes - reinterpret_cast<std::uintptr_t>(bytes) % kPageSize;
    madvise(page, 2 * kPageSize, MADV_DONTNEED);
}

} // namespace

// Four bytes are the offset, one is how much the count exceeds the bytes that follow.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHeader = 5;
    if (size < kHeader) {
        return -1;
    }
    static unsigned char* const block = makeBlock();
    unsigned int offset = 0;
    std::memcpy(&offset, data, sizeof offset);
    const std::string bytes(reinterpret_cast<const char*>(data) + kHeader, std::min(size - kHeader, kLineBytes));
    const unsigned int count = static_cast<unsigned int>(bytes.size()) + (bytes.size() == kLineBytes ? data[4] : 0);

    std::memcpy(block + offset, bytes.data(), bytes.size());
    unsigned char* const behind = block + offset + bytes.size();
    ASAN_POISON_MEMORY_REGION(behind, kGuardSize);
    std::string line = "what was there before";
    CSorrel::formatDumpLine(line, offset, block, count);
    ASAN_UNPOISON_MEMORY_REGION(behind, kGuardSize);
    forget(block + offset);

    expectSame("line", line, rendered(offset, bytes));
    return 0;
}
