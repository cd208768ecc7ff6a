// One message as one line, for the targets that write lines. All functions append.
#ifndef SORREL_TARGETS_LOG_LINE_HPP
#define SORREL_TARGETS_LOG_LINE_HPP

#include "text.hpp"

#include <sorrel/target_library.hpp>

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

namespace log_line {

template <typename Number>
void appendNumber(std::string& out, Number number) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// "INFO"; levels without a name are shown as their number.
inline void appendLevel(std::string& out, int numeric) {
    const char* const name = sorrel::levelName(numeric);
    if (name != nullptr) {
        out += name;
    } else {
        appendNumber(out, numeric);
    }
}

// Fills what stands from `start` on up to a column's width, and adds the space behind it. Counts characters, not bytes.
inline void endColumn(std::string& out, std::size_t start, std::size_t width) {
    std::size_t shown = 0;
    for (std::size_t i = start; i < out.size(); ++i) {
        if ((static_cast<unsigned char>(out[i]) & 0xc0U) != 0x80) {
            ++shown;
        }
    }
    out.append(shown < width ? width - shown + 1 : 1, ' ');
}

inline void appendColumn(std::string& out, std::string_view text, std::size_t width) {
    const std::size_t start = out.size();
    text::appendVisible(out, text);
    endColumn(out, start, width);
}

inline void appendLevelColumn(std::string& out, int numeric) {
    constexpr std::size_t kWidth = 6;
    const std::size_t start = out.size();
    appendLevel(out, numeric);
    endColumn(out, start, kWidth);
}

// What stands behind the level: "COMPONENT THREAD [FUNCTION] TEXT" and a line feed. Traced functions indent what they
// log.
inline void appendRest(std::string& out, const sorrel::Message& message) {
    constexpr std::size_t kComponentWidth = 8;
    constexpr std::size_t kThreadWidth = 10;
    constexpr std::size_t kIndent = 2;
    appendColumn(out, message.componentName, kComponentWidth);
    appendColumn(out, message.threadName, kThreadWidth);
    if (message.depth > 0) {
        out.append(static_cast<std::size_t>(message.depth) * kIndent, ' ');
    }
    if (!message.functionName.empty()) {
        out += '[';
        text::appendVisible(out, message.functionName);
        out += "] ";
    }
    text::appendVisible(out, message.text);
    out += '\n';
}

} // namespace log_line

#endif // SORREL_TARGETS_LOG_LINE_HPP
