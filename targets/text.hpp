// Texts come from anywhere: here they are made safe for what they are written into. All functions append.
#ifndef SORREL_TARGETS_TEXT_HPP
#define SORREL_TARGETS_TEXT_HPP

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

namespace text {

inline unsigned char byteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

// How many bytes the control character at an index has: 1, 2 for one of the second set (U+0080 to U+009F), and 0 when
// none is there.
inline std::size_t controlLength(std::string_view text, std::size_t index) {
    const unsigned char byte = byteAt(text, index);
    if (byte < 0x20 || byte == 0x7f) {
        return 1;
    }
    return byte == 0xc2 && byteAt(text, index + 1) >= 0x80 && byteAt(text, index + 1) < 0xa0 ? 2 : 0;
}

// How many bytes the UTF-8 sequence at an index has, 0 when it is broken, too long for its character or a surrogate.
inline std::size_t sequenceLength(std::string_view text, std::size_t index) {
    const unsigned char first = byteAt(text, index);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() - index < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(text, index + i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const unsigned char second = byteAt(text, index + 1);
    const bool isOutside = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                           (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
    return isOutside ? 0 : length;
}

// As controlLength; and 1 for a byte of the second set that belongs to no sequence, which terminals of eight bits obey.
inline std::size_t harmLength(std::string_view text, std::size_t index) {
    const std::size_t length = controlLength(text, index);
    const unsigned char byte = byteAt(text, index);
    return length == 0 && byte >= 0x80 && byte < 0xa0 ? 1 : length;
}

// The index of the first byte, from one on, that is not plain ASCII; the text's size when there is none.
inline std::size_t findUnusual(std::string_view text, std::size_t index) {
    while (index < text.size() && text[index] >= ' ' && text[index] <= '~') {
        ++index;
    }
    return index;
}

// A number, to the base 10 or 16.
template <typename Number>
void appendNumber(std::string& out, Number value, int base = 10) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value, base);
    out.append(digits, end.ptr);
}

inline void appendHex(std::string& out, unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    out += kDigits[byte >> 4U];
    out += kDigits[byte & 0xfU];
}

// For lines that people read: a control character must neither end the line nor command the terminal. Shown are "\n",
// "\t" and "\x1b"; all other bytes, and the characters in `kept`, stay as they are.
inline void appendVisible(std::string& out, std::string_view text, std::string_view kept = {}) {
    std::size_t copied = 0;
    for (std::size_t i = findUnusual(text, 0); i < text.size(); i = findUnusual(text, i)) {
        const std::size_t length = harmLength(text, i);
        if (length == 0 || kept.find(text[i]) != std::string_view::npos) {
            i += std::max<std::size_t>(sequenceLength(text, i), 1);
            continue;
        }
        out.append(text, copied, i - copied);
        if (text[i] == '\n' || text[i] == '\t') {
            out += text[i] == '\n' ? "\\n" : "\\t";
        } else {
            for (const char c : text.substr(i, length)) {
                out += "\\x";
                appendHex(out, static_cast<unsigned char>(c));
            }
        }
        i += length;
        copied = i;
    }
    out.append(text, copied);
}

// A JSON string, with its quotation marks. What is no UTF-8 becomes U+FFFD, a byte each.
inline void appendJson(std::string& out, std::string_view text) {
    out += '"';
    std::size_t copied = 0;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t control = controlLength(text, i);
        const std::size_t length = sequenceLength(text, i);
        if (control == 0 && length != 0 && text[i] != '"' && text[i] != '\\') {
            i += length;
            continue;
        }
        out.append(text, copied, i - copied);
        if (control != 0) { // the last byte is the character's number
            out += "\\u00";
            appendHex(out, byteAt(text, i + control - 1));
        } else if (length == 0) {
            out += "\\ufffd";
        } else {
            out += '\\';
            out += text[i];
        }
        i += control + (control == 0 ? 1 : 0);
        copied = i;
    }
    out.append(text, copied);
    out += '"';
}

} // namespace text

#endif // SORREL_TARGETS_TEXT_HPP
