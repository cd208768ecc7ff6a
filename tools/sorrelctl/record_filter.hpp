// Which messages of a ring are wanted.
#ifndef SORREL_TOOLS_RECORD_FILTER_HPP
#define SORREL_TOOLS_RECORD_FILTER_HPP

#include "ring_reader.hpp"

#include <sorrel/component_set.hpp>
#include <sorrel/level_set.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <regex.h>
#include <string>
#include <string_view>

namespace sorrelctl {

// A regular expression as `grep -E` takes it. Throws std::invalid_argument for what is none.
class Regex {
public:
    explicit Regex(const std::string& expression);
    bool isFoundIn(std::string_view text) const;

private:
    struct Free {
        void operator()(regex_t* compiled) const {
            regfree(compiled);
            delete compiled;
        }
    };
    std::unique_ptr<regex_t, Free> m_compiled;
};

// A moment, as people write it. Throws std::invalid_argument for what is none.
class Since {
public:
    // "90s", "5m", "2h", "1d": before the newest message; "2024-02-29 13:04:05.5", "2024-02-29 13:04", "2024-02-29":
    // local time; "@1709211845": seconds since 1970.
    explicit Since(const std::string& words);

    // In microseconds since 1970. What a damaged file holds for its newest message may lie at the end of all times.
    std::int64_t moment(std::int64_t newest) const {
        std::int64_t moment = m_microseconds;
        const bool isOutside = m_isBeforeNewest && __builtin_sub_overflow(newest, m_microseconds, &moment);
        return isOutside ? INT64_MIN : moment;
    }

private:
    bool m_isBeforeNewest = false;
    std::int64_t m_microseconds = 0;
};

// How many. Throws std::invalid_argument for what is no number.
class Count {
public:
    explicit Count(const std::string& words);
    std::uint64_t value() const { return m_value; }

private:
    std::uint64_t m_value = 0;
};

// What is not set chooses everything.
struct RecordFilter {
    std::optional<sorrel::LevelSet> levels;
    std::optional<sorrel::ComponentSet> components;
    std::optional<sorrel::ComponentSet> threads;
    std::optional<sorrel::ComponentSet> functions;
    std::optional<Regex> text;
    std::optional<Since> since;
    std::optional<Count> last;

    // Leaves those that are wanted.
    void choose(Records& records);

private:
    bool isWanted(const Record& record);
};

// When a message was logged, in microseconds since 1970.
std::int64_t momentOf(const Record& record);

} // namespace sorrelctl

#endif // SORREL_TOOLS_RECORD_FILTER_HPP
