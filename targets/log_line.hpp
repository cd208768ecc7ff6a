// One message as one line of text, shared by the targets that write lines.
#ifndef SORREL_TARGETS_LOG_LINE_HPP
#define SORREL_TARGETS_LOG_LINE_HPP

#include <sorrel/target_library.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <fmt/format.h>
#include <iterator>
#include <string>
#include <unistd.h>

namespace log_line {

inline std::string levelName(int numeric) {
    const char* const name = sorrel::levelName(numeric);
    return name != nullptr ? name : std::to_string(numeric);
}

inline std::tm localTime(long long seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    localtime_r(&time, &parts);
    return parts;
}

// "2024-02-29 ", for targets whose lines are read on another day.
inline std::string date(long long seconds) {
    const std::tm parts = localTime(seconds);
    return fmt::format("{:04}-{:02}-{:02} ", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

// Texts come from anywhere: a control character must neither break the line nor command the terminal. The bytes c2 80
// to c2 9f are the second set of control characters, in UTF-8.
inline std::string escaped(const std::string& text) {
    std::string result;
    unsigned char previous = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isControl = byte < 0x20 || byte == 0x7f || (previous == 0xc2 && byte >= 0x80 && byte < 0xa0);
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (isControl) {
            fmt::format_to(std::back_inserter(result), "\\x{:02x}", byte);
        } else {
            result += c;
        }
        previous = byte;
    }
    return result;
}

// "TIME LEVEL COMPONENT THREAD [FUNCTION] TEXT" and a line feed; traced functions indent what they log.
inline std::string format(const sorrel::Message& message) {
    const std::tm time = localTime(message.seconds);
    const std::string function = message.functionName.empty() ? "" : "[" + escaped(message.functionName) + "] ";
    return fmt::format("{:02}:{:02}:{:02}.{:06} {:<6} {:<8} {:<10} {:{}}{}{}\n", time.tm_hour, time.tm_min, time.tm_sec,
                       message.microseconds, levelName(message.level.numeric), escaped(message.componentName),
                       escaped(message.threadName), "", std::max(message.depth, 0) * 2, function,
                       escaped(message.text));
}

// One write a line, so that lines of several threads and processes do not mix. Returns 0 or the error number.
inline int write(int fd, const std::string& line) {
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t count = ::write(fd, line.data() + done, line.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return count == 0 ? EIO : errno;
        }
    }
    return 0;
}

} // namespace log_line

#endif // SORREL_TARGETS_LOG_LINE_HPP
