// One line of a hex dump.
#include <sorrel/logger.hpp>

#include <array>
#include <gtest/gtest.h>
#include <numeric>
#include <sys/mman.h>

namespace {

using Block = std::array<unsigned char, 64>;

// The bytes 0x41, 0x42, ... from `start` on.
Block letters(std::size_t start) {
    Block block{};
    std::iota(block.begin() + static_cast<std::ptrdiff_t>(start), block.end(), static_cast<unsigned char>(0x41));
    return block;
}

std::string line(const Block& block, unsigned int offset, unsigned int count) {
    std::string out;
    CSorrel::formatDumpLine(out, offset, block.data(), count);
    return out;
}

// What the character column shows for one byte.
std::string shown(unsigned char byte) {
    std::string out;
    CSorrel::formatDumpLine(out, 0, &byte, 1);
    return out.substr(63);
}

} // namespace

TEST(HexDumpLine, AFullLineHasOffsetBytesAndCharacters) {
    const std::string full = line(letters(16), 16, 16);
    EXPECT_EQ(full, "0x00000010 - 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 | ABCDEFGHIJKLMNOP");
    EXPECT_EQ(full.size(), 79U);
}

TEST(HexDumpLine, AShortLineIsPaddedSoThatTheCharactersStayAligned) {
    EXPECT_EQ(line(letters(0), 0, 1), "0x00000000 - 41 " + std::string(45, ' ') + "| A");
    EXPECT_EQ(line(letters(0), 0, 15),
              "0x00000000 - 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f    | ABCDEFGHIJKLMNO");
}

TEST(HexDumpLine, ACountOf0LeavesBothColumnsEmpty) {
    EXPECT_EQ(line(letters(0), 0, 0), "0x00000000 - " + std::string(48, ' ') + "| ");
}

TEST(HexDumpLine, ACountAbove16IsClampedInBothColumns) {
    EXPECT_EQ(line(letters(0), 0, 17), line(letters(0), 0, 16));
    EXPECT_EQ(line(letters(0), 0, 0xffffffffU), line(letters(0), 0, 16));
}

TEST(HexDumpLine, TheOffsetSelectsTheBytesOfTheBlock) {
    EXPECT_EQ(line(letters(0), 3, 2), "0x00000003 - 44 45 " + std::string(42, ' ') + "| DE");
}

TEST(HexDumpLine, TheOffsetIsAlwaysTenCharactersWide) {
    const Block block = letters(0);
    std::string out;
    for (const unsigned int offset : {0U, 0x1U, 0xabcU, 0x7fffffffU, 0xabcdef01U, 0xffffffffU}) {
        CSorrel::formatDumpLine(out, offset, block.data(), 0);
        EXPECT_EQ(out.substr(10, 3), " - ") << out;
    }
    EXPECT_EQ(out.substr(0, 10), "0xffffffff");
    CSorrel::formatDumpLine(out, 0xabcdef01U, block.data(), 0);
    EXPECT_EQ(out.substr(0, 10), "0xabcdef01");
}

// The last bytes that a 32-bit offset reaches, in a block of which nothing else is mapped in.
TEST(HexDumpLine, TheLastLineOfFourGigabytesIsReached) {
    if (sizeof(std::size_t) == 4) {
        GTEST_SKIP() << "such a block needs 64-bit addresses";
    }
    constexpr unsigned int kOffset = 0xfffffff0U;
    const std::size_t size = std::size_t{kOffset} + 16;
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const bytes = static_cast<unsigned char*>(memory);
    std::iota(bytes + kOffset, bytes + size, static_cast<unsigned char>(0x41));
    std::string out;
    CSorrel::formatDumpLine(out, kOffset, bytes, 15);
    EXPECT_EQ(out, "0xfffffff0 - 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f    | ABCDEFGHIJKLMNO");
    munmap(memory, size);
}

TEST(HexDumpLine, BytesAreTwoLowerCaseDigitsHighNibbleFirst) {
    const unsigned char bytes[] = {0x00, 0x0f, 0xf0, 0xa5, 0x5a, 0xff};
    std::string out;
    CSorrel::formatDumpLine(out, 0, bytes, sizeof bytes);
    EXPECT_EQ(out.substr(13, 18), "00 0f f0 a5 5a ff ");
}

TEST(HexDumpLine, UnprintableBytesAppearAsPoints) {
    for (unsigned int byte = 0; byte < 256; ++byte) {
        if (byte < 0x20 || byte > 0x7f) {
            EXPECT_EQ(shown(static_cast<unsigned char>(byte)), ".") << byte;
        }
    }
}

TEST(HexDumpLine, PrintableBytesAppearAsThemselves) {
    EXPECT_EQ(shown(0x20), " ");
    for (unsigned int byte = 0x20; byte < 0x7f; ++byte) {
        EXPECT_EQ(shown(static_cast<unsigned char>(byte)), std::string(1, static_cast<char>(byte)));
    }
}

TEST(HexDumpLine, KeepsDeleteAsPrintable) {
    EXPECT_EQ(shown(0x7f), "\x7f");
}

TEST(HexDumpLine, ReplacesWhatTheStringHeld) {
    std::string out(500, 'x');
    CSorrel::formatDumpLine(out, 0, letters(0).data(), 16);
    EXPECT_EQ(out, line(letters(0), 0, 16));
}
