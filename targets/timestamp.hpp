// Times of messages as texts.
#ifndef SORREL_TARGETS_TIMESTAMP_HPP
#define SORREL_TARGETS_TIMESTAMP_HPP

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

// A local time with microseconds: "2024-02-29 13:04:05.000042". Works the calendar out once a second.
class Timestamp {
public:
    // `format` is strftime's for what stands before the point, `zone` for what stands behind the microseconds. "%z"
    // alone gives the zone as "+01:00", which ISO 8601 wants beside such times.
    explicit Timestamp(const char* format, const char* zone = "") : m_format(format), m_zone(zone) {}

    void append(std::string& out, long long seconds, int microseconds) {
        if (seconds != m_seconds || m_text.empty()) {
            m_seconds = seconds;
            workOut();
        }
        auto rest = static_cast<unsigned int>(microseconds);
        for (std::size_t i = 0; i < kDigits; ++i) {
            m_text[m_end - 1 - i] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        }
        out += m_text;
    }

private:
    void workOut() {
        const std::time_t time = m_seconds;
        std::tm parts = {};
        localtime_r(&time, &parts);
        char buffer[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // both are literals where the object is made
        m_text.assign(buffer, std::strftime(buffer, sizeof buffer, m_format, &parts));
        m_text += '.';
        m_text.append(kDigits, '0');
        m_end = m_text.size();
        m_text.append(buffer, std::strftime(buffer, sizeof buffer, m_zone, &parts));
#pragma GCC diagnostic pop
        constexpr std::string_view kOffset = "%z";
        if (m_zone == kOffset) {
            m_text.insert(m_text.size() - 2, ":");
        }
    }

    static constexpr std::size_t kDigits = 6;

    const char* const m_format;
    const char* const m_zone;
    long long m_seconds = 0;
    std::string m_text;    // of that second, with the last microseconds
    std::size_t m_end = 0; // of these in it
};

#endif // SORREL_TARGETS_TIMESTAMP_HPP
