// Log target that writes to the system log: `target=sorrel-syslog.so, facility=daemon`. By default in the form of RFC
// 3164, as syslog(3) does; with `format=5424` in that of RFC 5424. Its socket is its own: what the process does with
// openlog and setlogmask does not matter here.
#include "service_target.hpp"
#include "text.hpp"
#include "timestamp.hpp"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t kMostTagBytes = 32;  // of RFC 3164
constexpr std::size_t kMostNameBytes = 48; // of an application, in RFC 5424
constexpr std::size_t kMostHostBytes = 255;

constexpr std::initializer_list<std::pair<const char*, int>> kFacilities = {
    {"user", 1},    {"mail", 2},    {"daemon", 3},    {"auth", 4},    {"syslog", 5},  {"lpr", 6},     {"news", 7},
    {"uucp", 8},    {"cron", 9},    {"authpriv", 10}, {"ftp", 11},    {"local0", 16}, {"local1", 17}, {"local2", 18},
    {"local3", 19}, {"local4", 20}, {"local5", 21},   {"local6", 22}, {"local7", 23}};

// What stands in a header is visible ASCII, without what ends a tag.
std::string headerField(const std::string& name, std::size_t mostBytes) {
    std::string field = name.substr(0, mostBytes);
    for (char& c : field) {
        const bool isVisible = c > ' ' && c <= '~';
        if (!isVisible || c == ':' || c == '[' || c == ']' || c == '/') {
            c = '_';
        }
    }
    return field.empty() ? "-" : field;
}

std::string hostName() {
    char name[kMostHostBytes + 1] = {};
    return headerField(gethostname(name, kMostHostBytes) == 0 ? name : "", kMostHostBytes);
}

// Whether a text is UTF-8 that has more than ASCII.
bool isWideText(std::string_view text) {
    bool isWide = false;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = text::sequenceLength(text, i);
        if (length == 0) {
            return false;
        }
        isWide = isWide || length > 1;
        i += length;
    }
    return isWide;
}

// "Feb 29 13:04:05 ", in English whatever the locale is. Works the calendar out once a second.
class EnglishTime {
public:
    void append(std::string& out, long long seconds) {
        if (seconds != m_seconds || m_text.empty()) {
            m_seconds = seconds;
            workOut();
        }
        out += m_text;
    }

private:
    void workOut() {
        constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
        const std::time_t time = m_seconds;
        std::tm parts = {};
        localtime_r(&time, &parts);
        char buffer[32];
        const std::size_t length = std::strftime(buffer, sizeof buffer, " %e %H:%M:%S ", &parts);
        m_text = kMonths.substr(static_cast<std::size_t>(parts.tm_mon) * 3, 3);
        m_text.append(buffer, length);
    }

    long long m_seconds = 0;
    std::string m_text;
};

class SyslogTarget final : public ServiceTarget {
public:
    explicit SyslogTarget(sorrel::TargetParameters& parameters)
        : ServiceTarget(parameters, "/dev/log"), m_facility(parameters.choice("facility", 1, kFacilities)),
          m_is5424(parameters.choice("format", false, {{"3164", false}, {"5424", true}})),
          m_dataId("[sorrel@" + std::to_string(parameters.number("enterprise", kExampleEnterprise, 1U, UINT32_MAX))) {
        const std::string given = parameters.text("ident", "-");
        if (headerField(given, mostNameBytes()) != given) {
            sorrel::TargetParameters::refuse("ident", given, "is no name for the system log");
        }
        nameHeader();
    }

    bool isSyslogTarget() override { return true; }

    void setAppname(const std::string& name) override {
        ServiceTarget::setAppname(name);
        nameHeader();
    }

private:
    static constexpr std::uint32_t kExampleEnterprise = 32473; // reserved for those who have none

    std::size_t mostNameBytes() const { return m_is5424 ? kMostNameBytes : kMostTagBytes; }

    void nameHeader() {
        const std::string field = headerField(ident(), mostNameBytes());
        m_name = m_is5424 ? " " + m_host + " " + field + " " : field + "[";
    }

    int deliver(const sorrel::Message& message) override {
        m_line = "<";
        text::appendNumber(m_line, m_facility * 8 + message.priority());
        if (m_is5424) {
            append5424(message);
        } else {
            append3164(message);
        }
        return send(m_line);
    }

    // "<14>Feb 29 13:04:05 door[4711]: net/main: [poll] hello"
    void append3164(const sorrel::Message& message) {
        m_line += '>';
        m_englishTime.append(m_line, message.seconds);
        m_line += m_name;
        text::appendNumber(m_line, message.processId);
        m_line += "]: ";
        text::appendVisible(m_line, message.componentName);
        m_line += '/';
        text::appendVisible(m_line, message.threadName);
        m_line += ": ";
        if (!message.functionName.empty()) {
            m_line += '[';
            text::appendVisible(m_line, message.functionName);
            m_line += "] ";
        }
        text::appendVisible(m_line, message.text);
    }

    // "<14>1 2024-02-29T13:04:05.000042+01:00 host door 4711 - [sorrel@32473 component="net" ...] hello"
    void append5424(const sorrel::Message& message) {
        m_line += ">1 ";
        m_isoTime.append(m_line, message.seconds, message.microseconds);
        m_line += m_name;
        text::appendNumber(m_line, message.processId);
        m_line += " - ";
        m_line += m_dataId;
        m_line += " component=";
        appendParameter(message.componentName);
        m_line += " depth=\"";
        text::appendNumber(m_line, message.depth);
        m_line += "\" function=";
        appendParameter(message.functionName);
        m_line += " thread=";
        appendParameter(message.threadName);
        m_visible.clear();
        text::appendVisible(m_visible, message.text);
        m_line += isWideText(m_visible) ? "] \xef\xbb\xbf" : "] "; // the mark in front of UTF-8 is demanded
        m_line += m_visible;
    }

    // UTF-8 only; a quotation mark, a backslash and a closing bracket have a backslash in front.
    void appendParameter(std::string_view value) {
        m_visible.clear();
        text::appendVisible(m_visible, value);
        m_line += '"';
        for (std::size_t i = 0; i < m_visible.size();) {
            const std::size_t length = text::sequenceLength(m_visible, i);
            if (length == 0) {
                m_line += "\xef\xbf\xbd"; // U+FFFD
                ++i;
                continue;
            }
            if (m_visible[i] == '"' || m_visible[i] == '\\' || m_visible[i] == ']') {
                m_line += '\\';
            }
            m_line.append(m_visible, i, length);
            i += length;
        }
        m_line += '"';
    }

    const int m_facility;
    const bool m_is5424;
    const std::string m_dataId;
    const std::string m_host = hostName();
    std::string m_name; // the part of the header that names the application
    EnglishTime m_englishTime;
    Timestamp m_isoTime{"%Y-%m-%dT%H:%M:%S", "%z"};
    std::string m_line;
    std::string m_visible;
};

} // namespace

SORREL_TARGET_LIBRARY(SyslogTarget, "syslog")
