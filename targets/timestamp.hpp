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
        if (seconds != m_seconds || m_front.empty()) {
            m_seconds = seconds;
            workOut();
        }
        out += m_front;
        char digits[] = ".000000";
        auto rest = static_cast<unsigned int>(microseconds);
        for (std::size_t i = sizeof digits - 2; i > 0; --i) {
            digits[i] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        }
        out.append(digits, sizeof digits - 1);
        out += m_back;
    }

private:
    void workOut() {
        const auto time = static_cast<std::time_t>(m_seconds);
        std::tm parts = {};
        localtime_r(&time, &parts);
        char buffer[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // both are literals where the object is made
        m_front.assign(buffer, std::strftime(buffer, sizeof buffer, m_format, &parts));
        m_back.assign(buffer, std::strftime(buffer, sizeof buffer, m_zone, &parts));
#pragma GCC diagnostic pop
        constexpr std::string_view kOffset = "%z";
        if (m_zone == kOffset) {
            m_back.insert(m_back.size() - 2, ":");
        }
    }

    const char* const m_format;
    const char* const m_zone;
    long long m_seconds = 0;
    std::string m_front;
    std::string m_back;
};

#endif // SORREL_TARGETS_TIMESTAMP_HPP
