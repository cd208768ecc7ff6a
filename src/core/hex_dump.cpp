// Hex dumps of memory, one message for each 16 bytes.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include "core/message_path.hpp"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned int kBytesPerLine = 16;
constexpr char dumpOffsetFormat[] = "0x%08x";

void appendHexColumns(std::string& out, const unsigned char* bytes, unsigned int count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    for (unsigned int i = 0; i < kBytesPerLine; ++i) {
        if (i < count) {
            out += kDigits[bytes[i] >> 4U];
            out += kDigits[bytes[i] & 0xfU];
            out += ' ';
        } else {
            out += "   ";
        }
    }
}

// Deliberate: 0x7f counts as printable.
void appendCharacters(std::string& out, const unsigned char* bytes, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        const bool printable = bytes[i] >= 0x20 && bytes[i] <= 0x7f;
        out += printable ? static_cast<char>(bytes[i]) : '.';
    }
}

} // namespace

void CSorrel::formatDumpLine(std::string& out, unsigned int offset, const unsigned char* data, unsigned int count) {
    const unsigned int shown = std::min(count, kBytesPerLine);
    char offsetText[256];
    snprintf(offsetText, sizeof offsetText, dumpOffsetFormat, offset);
    out = offsetText;
    out += " - ";
    appendHexColumns(out, data + offset, shown);
    out += "| ";
    appendCharacters(out, data + offset, shown);
}

void CSorrel::dump(sorrel_component* component, sorrel_level* level, const void* data, unsigned int length) {
    if (!sorrel::messagePasses(component, level)) {
        return;
    }
    if (data == nullptr) {
        _sorrel(component, level, "<NULL>");
        return;
    }
    const auto* const bytes = static_cast<const unsigned char*>(data);
    const unsigned int fullLines = length / kBytesPerLine;
    std::string line;
    for (unsigned int i = 0; i < fullLines; ++i) {
        formatDumpLine(line, i * kBytesPerLine, bytes, kBytesPerLine);
        _sorrel(component, level, "%s", line.c_str());
    }
    if (const unsigned int rest = length % kBytesPerLine; rest != 0) {
        formatDumpLine(line, fullLines * kBytesPerLine, bytes, rest);
        _sorrel(component, level, "%s", line.c_str());
    }
}
