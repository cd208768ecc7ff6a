// One message as one line, for the targets that write lines. All functions append.
#ifndef SORREL_TARGETS_LOG_LINE_HPP
#define SORREL_TARGETS_LOG_LINE_HPP

#include "text.hpp"

#include <sorrel/target_library.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace log_line {

// "INFO"; levels without a name are shown as their number.
inline void appendLevel(std::string& out, int numeric) {
    const char* const name = sorrel::levelName(numeric);
    if (name != nullptr) {
        out += name;
    } else {
        text::appendNumber(out, numeric);
    }
}

// In a column of so many characters, not bytes, and a space. Names are mostly plain and short.
template <std::size_t width>
void appendColumn(std::string& out, std::string_view text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
    std::size_t shown = 0;
    if (text.size() <= width && std::all_of(text.begin(), text.end(), isPlain)) {
        char column[width + 1];
        std::memset(column, ' ', sizeof column);
        text.copy(column, width);
        out.append(column, sizeof column);
        return;
    }
    const std::size_t start = out.size();
    text::appendVisible(out, text);
    for (std::size_t i = start; i < out.size(); ++i) {
        if ((static_cast<unsigned char>(out[i]) & 0xc0U) != 0x80) {
            ++shown;
        }
    }
    out.append(shown < width ? width - shown + 1 : 1, ' ');
}

inline void appendLevelColumn(std::string& out, int numeric) {
    constexpr std::size_t kWidth = 6;
    const char* const name = sorrel::levelName(numeric);
    appendColumn<kWidth>(out, name != nullptr ? std::string_view(name) : std::to_string(numeric));
}

// What stands behind the level: "COMPONENT THREAD [FUNCTION] TEXT" and a line feed. Traced functions indent what they
// log.
inline void appendRest(std::string& out, const sorrel::Message& message) {
    constexpr std::size_t kComponentWidth = 8;
    constexpr std::size_t kThreadWidth = 10;
    constexpr std::size_t kIndent = 2;
    appendColumn<kComponentWidth>(out, message.componentName);
    appendColumn<kThreadWidth>(out, message.threadName);
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
