// Hex dumps of memory, one message for each 16 bytes.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <algorithm>
#include <cstddef>

namespace {

constexpr unsigned int kBytesPerLine = 16;
constexpr char kDigits[] = "0123456789abcdef";

// One line of a dump.
class DumpLine {
public:
    DumpLine(unsigned int offset, const unsigned char* bytes, unsigned int count) {
        append("0x", 2);
        for (unsigned int bits = 32; bits > 0; bits -= 8) {
            appendByte(static_cast<unsigned char>(offset >> (bits - 8)));
        }
        append(" - ", 3);
        appendHexColumns(bytes, count);
        append("| ", 2);
        appendCharacters(bytes, count);
        *m_end = '\0';
    }
    DumpLine(const DumpLine&) = delete;
    DumpLine& operator=(const DumpLine&) = delete;

    const char* text() const { return m_text; }
    std::size_t length() const { return static_cast<std::size_t>(m_end - m_text); }

private:
    void append(const char* text, std::size_t count) { m_end = std::copy_n(text, count, m_end); }

    void appendByte(unsigned char byte) {
        *m_end++ = kDigits[byte >> 4U];
        *m_end++ = kDigits[byte & 0xfU];
    }

    void appendHexColumns(const unsigned char* bytes, unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            appendByte(bytes[i]);
            *m_end++ = ' ';
        }
        m_end = std::fill_n(m_end, 3 * (kBytesPerLine - count), ' ');
    }

    // Deliberate: 0x7f counts as printable.
    void appendCharacters(const unsigned char* bytes, unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            const bool printable = bytes[i] >= 0x20 && bytes[i] <= 0x7f;
            *m_end++ = printable ? static_cast<char>(bytes[i]) : '.';
        }
    }

    char m_text[10 + 3 + 3 * kBytesPerLine + 2 + kBytesPerLine + 1]; // as the constructor writes it
    char* m_end = m_text;
};

} // namespace

void CSorrel::formatDumpLine(std::string& out, unsigned int offset, const unsigned char* data, unsigned int count) {
    const DumpLine line(offset, data + offset, std::min(count, kBytesPerLine));
    out.assign(line.text(), line.length());
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
    for (unsigned int left = length; left > 0; left -= std::min(left, kBytesPerLine)) {
        const unsigned int offset = length - left;
        const DumpLine line(offset, bytes + offset, std::min(left, kBytesPerLine));
        _sorrel(component, level, "%s", line.text());
    }
}
