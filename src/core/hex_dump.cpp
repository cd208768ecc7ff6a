// Hex dumps of memory, one message for each 16 bytes.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr unsigned int kBytesPerLine = 16;
constexpr unsigned int kColumn = 3; // characters for each byte

// How each byte is written.
struct ByteTexts {
    char columns[256][kColumn + 1]; // two digits and a blank; copied with the zero behind, which is quicker
    char shown[256];
};

constexpr ByteTexts makeByteTexts() {
    constexpr char kDigits[] = "0123456789abcdef";
    ByteTexts texts{};
    for (unsigned int byte = 0; byte < 256; ++byte) {
        texts.columns[byte][0] = kDigits[byte >> 4U];
        texts.columns[byte][1] = kDigits[byte & 0xfU];
        texts.columns[byte][2] = ' ';
        // Deliberate: 0x7f counts as printable.
        texts.shown[byte] = byte >= 0x20 && byte <= 0x7f ? static_cast<char>(byte) : '.';
    }
    return texts;
}

constexpr ByteTexts kByteTexts = makeByteTexts();

constexpr std::size_t kLineSize = 10 + 3 + kColumn * kBytesPerLine + 2 + kBytesPerLine + 1; // as written below

char* put(char* at, const char* text, std::size_t count) {
    std::memcpy(at, text, count);
    return at + count;
}

// Writes a line and the zero behind it. Returns the line's length.
std::size_t writeLine(char (&line)[kLineSize], unsigned int offset, const unsigned char* bytes, unsigned int count) {
    char* at = put(line, "0x", 2);
    for (unsigned int bits = 32; bits > 0; bits -= 8) {
        at = put(at, kByteTexts.columns[offset >> (bits - 8) & 0xffU], 2);
    }
    at = put(at, " - ", 3);
    for (unsigned int i = 0; i < count; ++i) {
        at = put(at, kByteTexts.columns[bytes[i]], kColumn + 1) - 1;
    }
    at = std::fill_n(at, kColumn * (kBytesPerLine - count), ' ');
    at = put(at, "| ", 2);
    for (unsigned int i = 0; i < count; ++i) {
        *at++ = kByteTexts.shown[bytes[i]];
    }
    *at = '\0';
    return static_cast<std::size_t>(at - line);
}

} // namespace

void CSorrel::formatDumpLine(std::string& out, unsigned int offset, const unsigned char* data, unsigned int count) {
    char line[kLineSize];
    const std::size_t length = writeLine(line, offset, data + offset, std::min(count, kBytesPerLine));
    out.assign(line, length);
}

void CSorrel::dump(sorrel_component* component, sorrel_level* level, const void* data, unsigned int length) {
    if (!sorrel::enabled(component, level)) {
        return;
    }
    if (data == nullptr) {
        _sorrel(component, level, "<NULL>");
        return;
    }
    const auto* const bytes = static_cast<const unsigned char*>(data);
    char line[kLineSize];
    for (unsigned int left = length; left > 0; left -= std::min(left, kBytesPerLine)) {
        const unsigned int offset = length - left;
        writeLine(line, offset, bytes + offset, std::min(left, kBytesPerLine));
        _sorrel(component, level, "%s", line);
    }
}
