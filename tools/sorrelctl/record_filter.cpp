// Chooses messages by what they hold.
#include "record_filter.hpp"

#include <array>
#include <charconv>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <system_error>

namespace sorrelctl {

namespace {

constexpr std::int64_t kSecond = 1000000;

[[noreturn]] void refuse(const std::string& words) {
    throw std::invalid_argument("\"" + words + "\" is no time: 90s, 5m, 2h, 1d, \"2024-02-29 13:04:05\" or @SECONDS");
}

// Digits behind a point as microseconds.
std::optional<std::int64_t> fraction(const std::string& digits) {
    constexpr std::size_t kDigits = 6;
    if (digits.empty() || digits.size() > kDigits || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoll(digits + std::string(kDigits - digits.size(), '0'));
}

// Asked in UTC: in local time there are hours, even days, that the clock skips.
bool isInCalendar(const std::tm& parts) {
    std::tm day = {};
    day.tm_year = parts.tm_year;
    day.tm_mon = parts.tm_mon;
    day.tm_mday = parts.tm_mday;
    timegm(&day); // the 30th of February becomes the 1st of March
    return day.tm_mday == parts.tm_mday;
}

std::optional<std::int64_t> calendarTime(const std::string& words) {
    for (const std::string_view format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm parts = {};
        parts.tm_isdst = -1;
        const char* const rest = strptime(words.c_str(), format.data(), &parts);
        const bool hasFraction = rest != nullptr && *rest == '.' && format.back() == 'S';
        if (rest == nullptr || (*rest != '\0' && !hasFraction) || !isInCalendar(parts)) {
            continue;
        }
        const std::optional<std::int64_t> microseconds = hasFraction ? fraction(rest + 1) : 0;
        if (microseconds) {
            const std::int64_t seconds = std::mktime(&parts);
            return seconds * kSecond + *microseconds;
        }
    }
    return std::nullopt;
}

// A whole number and what stands behind it.
std::optional<std::int64_t> wholeNumber(std::string_view words, std::string_view& rest) {
    std::int64_t number = 0;
    const std::from_chars_result result = std::from_chars(words.data(), words.data() + words.size(), number);
    if (result.ec != std::errc() || number < 0) {
        return std::nullopt;
    }
    rest = words.substr(static_cast<std::size_t>(result.ptr - words.data()));
    return number;
}

// 0 for what is no unit.
std::int64_t microsecondsOf(std::string_view unit) {
    const std::int64_t seconds = unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : unit == "d" ? 24 * 3600 : 0;
    return seconds * kSecond;
}

bool fits(std::int64_t number, std::int64_t factor) {
    return number <= std::numeric_limits<std::int64_t>::max() / factor;
}

} // namespace

Regex::Regex(const std::string& expression) : m_compiled(new regex_t) {
    const int error = regcomp(m_compiled.get(), expression.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        std::array<char, 256> text = {};
        regerror(error, m_compiled.get(), text.data(), text.size());
        delete m_compiled.release(); // holds nothing that could be freed
        throw std::invalid_argument("\"" + expression + "\" is no regular expression: " + text.data());
    }
}

bool Regex::isFoundIn(std::string_view text) const {
    const std::string terminated(text); // which not every regexec does without
    regmatch_t range = {};
    range.rm_eo = static_cast<regoff_t>(text.size());
    return regexec(m_compiled.get(), terminated.c_str(), 1, &range, REG_STARTEND) == 0;
}

Since::Since(const std::string& words) {
    std::string_view rest;
    if (words.rfind('@', 0) == 0) {
        const std::optional<std::int64_t> seconds = wholeNumber(std::string_view(words).substr(1), rest);
        if (!seconds || !rest.empty() || !fits(*seconds, kSecond)) {
            refuse(words);
        }
        m_microseconds = *seconds * kSecond;
        return;
    }
    const std::optional<std::int64_t> number = wholeNumber(words, rest);
    const std::int64_t unit = number ? microsecondsOf(rest) : 0;
    if (unit != 0 && fits(*number, unit)) {
        m_isBeforeNewest = true;
        m_microseconds = *number * unit;
        return;
    }
    const std::optional<std::int64_t> time = calendarTime(words);
    if (!time) {
        refuse(words);
    }
    m_microseconds = *time;
}

Count::Count(const std::string& words) {
    const char* const end = words.data() + words.size();
    const std::from_chars_result result = std::from_chars(words.data(), end, m_value);
    if (result.ec != std::errc() || result.ptr != end) {
        throw std::invalid_argument("\"" + words + "\" is no count: a whole number from 0 on");
    }
}

// What a damaged file holds need not be a time: it wraps around.
std::int64_t momentOf(const Record& record) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(record.seconds) * kSecond +
                                     static_cast<std::uint64_t>(record.microseconds));
}

bool RecordFilter::isWanted(const Record& record) {
    return (!levels || levels->contains({record.level, record.mask})) &&
           (!components || components->contains(std::string(record.component))) &&
           (!threads || threads->contains(std::string(record.thread))) &&
           (!functions || functions->contains(std::string(record.function))) && (!text || text->isFoundIn(record.text));
}

void RecordFilter::choose(Records& records) {
    const std::int64_t newest = records.empty() ? 0 : momentOf(records.back());
    records.keepIf([&](const Record& record) {
        return (!since || momentOf(record) >= since->moment(newest)) && isWanted(record);
    });
    if (last) {
        records.keepLast(last->value());
    }
}

} // namespace sorrelctl
