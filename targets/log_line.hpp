// One message as one line, for all that write such lines. All functions append.
#ifndef SORREL_TARGETS_LOG_LINE_HPP
#define SORREL_TARGETS_LOG_LINE_HPP

#include "text.hpp"
#include "timestamp.hpp"

#include <sorrel/level_set.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace log_line {

struct Line {
    long long seconds;
    int microseconds;
    int processId;
    int depth;
    int level;
    std::string_view thread;
    std::string_view component;
    std::string_view function;
    std::string_view text;
};

// Valid as long as the message.
template <typename Message>
Line lineOf(const Message& message) {
    return {message.seconds,    message.microseconds,  message.processId,    message.depth, message.level.numeric,
            message.threadName, message.componentName, message.functionName, message.text};
}

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
// log, but a program that forgets to leave them must not fill a disk with blanks.
inline void appendRest(std::string& out, const Line& line) {
    constexpr std::size_t kComponentWidth = 8;
    constexpr std::size_t kThreadWidth = 10;
    constexpr int kDeepest = 100;
    constexpr std::size_t kIndent = 2;
    appendColumn<kComponentWidth>(out, line.component);
    appendColumn<kThreadWidth>(out, line.thread);
    if (line.depth > 0) {
        out.append(static_cast<std::size_t>(std::min(line.depth, kDeepest)) * kIndent, ' ');
    }
    if (!line.function.empty()) {
        out += '[';
        text::appendVisible(out, line.function);
        out += "] ";
    }
    text::appendVisible(out, line.text);
    out += '\n';
}

// "2024-02-29 13:04:05.000042 INFO   net      main       [poll] hello" and a line feed.
class TextLines {
public:
    void append(std::string& out, const Line& line) {
        m_time.append(out, line.seconds, line.microseconds);
        appendLevelColumn(out, line.level);
        appendRest(out, line);
    }

private:
    Timestamp m_time{"%F %T", " "};
};

// A JSON object and a line feed.
class JsonLines {
public:
    void append(std::string& out, const Line& line) {
        out += "{\"time\":\"";
        m_time.append(out, line.seconds, line.microseconds);
        out += "\",\"pid\":";
        text::appendNumber(out, line.processId);
        out += ",\"thread\":";
        text::appendJson(out, line.thread);
        out += ",\"level\":\"";
        appendLevel(out, line.level);
        out += "\",\"component\":";
        text::appendJson(out, line.component);
        out += ",\"depth\":";
        text::appendNumber(out, line.depth);
        out += ",\"function\":";
        text::appendJson(out, line.function);
        out += ",\"text\":";
        text::appendJson(out, line.text);
        out += "}\n";
    }

private:
    Timestamp m_time{"%FT%T", "%z"};
};

} // namespace log_line

#endif // SORREL_TARGETS_LOG_LINE_HPP
