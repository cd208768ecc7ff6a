// Log target that appends each message as a line to a file: `target=sorrel-file.so, file=/var/log/app.log`.
// docs/TARGETS.md describes its parameters. Without a file that can be opened there is no target; the diagnostic
// channel says why.
#include "log_file.hpp"
#include "log_line.hpp"
#include "wait_parameter.hpp"

#include <sorrel/target_library.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kBufferBytes = 65536;
constexpr std::size_t kLongLine = 16384;

enum class Format { Text, Json };

mode_t modeFrom(sorrel::TargetParameters& parameters) {
    const std::string text = parameters.text("mode", "640");
    mode_t mode = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, mode, 8);
    if (result.ec != std::errc() || result.ptr != end || mode > 0777) {
        sorrel::TargetParameters::refuse("mode", text, "is not an octal number up to 777");
    }
    return mode;
}

// The gravest level is 0. Messages of this one, and of all that are graver, are written at once.
int flushLevelFrom(sorrel::TargetParameters& parameters) {
    const std::string text = parameters.text("flush", "always");
    const int level = text == "always" ? INT_MAX : sorrel::levelNumeric(text);
    if (level == -1) {
        sorrel::TargetParameters::refuse("flush", text, "is neither \"always\" nor a level");
    }
    return level;
}

class FileTarget final : public sorrel::MessageTarget {
public:
    explicit FileTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_path(parameters.path("file")),
          m_file(m_path, modeFrom(parameters), parameters.bytes("max_size", 0),
                 parameters.number("max_files", 5, 1, 999), waitFrom(parameters)),
          m_format(parameters.choice("format", Format::Text, {{"text", Format::Text}, {"json", Format::Json}})),
          m_flushLevel(flushLevelFrom(parameters)) {
        parameters.refuseUnknown(); // before there is a file
        const int error = m_file.open();
        if (error != 0) {
            sorrel::TargetParameters::refuse("file", m_path,
                                             std::string("cannot be opened: ") +
                                                 (error == EINVAL ? "it is not a regular file" : std::strerror(error)));
        }
        m_lines.reserve((m_flushLevel == INT_MAX ? 0 : kBufferBytes) + kLongLine);
    }
    FileTarget(const FileTarget&) = delete;
    FileTarget& operator=(const FileTarget&) = delete;
    ~FileTarget() override {
        const int error = isForked() ? 0 : m_file.append(m_lines, m_oldest / sorrel::Message::kSecond);
        if (error != 0) {
            countLost(static_cast<std::size_t>(std::count(m_lines.begin(), m_lines.end(), '\n')), error);
        }
    }

private:
    int deliver(const sorrel::Message& message) override {
        const int earlierError = m_isFull ? m_file.append(m_lines, message.seconds) : 0;
        m_isFull = earlierError != 0;
        return earlierError != 0 ? earlierError : add(message);
    }

    int add(const sorrel::Message& message) {
        if (m_lines.empty()) {
            m_oldest = message.microsecondsSinceEpoch();
        }
        const std::size_t before = m_lines.size();
        appendLine(message);
        const std::size_t size = m_lines.size() - before;
        if (message.level.numeric > m_flushLevel && m_lines.size() < kBufferBytes && !waitTooLong(message)) {
            return 0;
        }
        const int error = m_file.append(m_lines, message.seconds);
        if (error == 0 || (m_flushLevel != INT_MAX && m_lines.size() < kBufferBytes)) {
            return 0;
        }
        m_isFull = true;
        m_lines.resize(m_lines.size() - size);
        return error;
    }

    // Opens the file anew where it can, since a lock belongs to all who share a descriptor.
    void forked() override {
        m_lines.clear();
        (void)m_file.renew();
    }

    bool waitTooLong(const sorrel::Message& message) const {
        const long long waited = message.microsecondsSinceEpoch() - m_oldest;
        return waited < 0 || waited > sorrel::Message::kSecond; // the clock may have been set
    }

    void appendLine(const sorrel::Message& message) {
        if (m_format == Format::Json) {
            m_jsonLines.append(m_lines, log_line::lineOf(message));
        } else {
            m_textLines.append(m_lines, log_line::lineOf(message));
        }
    }

    const std::string m_path;
    LogFile m_file;
    const Format m_format;
    const int m_flushLevel;
    log_line::TextLines m_textLines;
    log_line::JsonLines m_jsonLines;
    std::string m_lines;    // not yet written
    long long m_oldest = 0; // of them, in microseconds since 1970
    bool m_isFull = false;  // and cannot be written either
};

} // namespace

SORREL_TARGET_LIBRARY(FileTarget, "file")
