// Sets of levels as people write them, and the names of single levels. For log targets and tools. C++17.
//
// All of it is compiled into what includes it, and stays inside.
#ifndef SORREL_LEVEL_SET_HPP
#define SORREL_LEVEL_SET_HPP

#include <sorrel/level.h>

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <strings.h>
#include <system_error>

#ifndef SORREL_LOCAL
#define SORREL_LOCAL __attribute__((visibility("hidden"))) /* not part of the exported interface */
#endif

namespace sorrel {

constexpr int kNamedLevels = 9; // the numerics 0 to 8

// "EMERG" to "DEBUG" for 0 to 7, "TRACE" for 8, null for every other numeric.
SORREL_LOCAL inline const char* levelName(int numeric) {
    constexpr const char* kNames[kNamedLevels] = {"EMERG",  "ALERT", "CRIT",  "ERROR", "WARN",
                                                  "NOTICE", "INFO",  "DEBUG", "TRACE"};
    return numeric >= 0 && numeric < kNamedLevels ? kNames[numeric] : nullptr;
}

// The numeric of a name, in capitals or not: those of levelName, and "err", "warning", "enterleave". -1 for others.
SORREL_LOCAL inline int levelNumeric(const std::string& name) {
    for (int numeric = 0; numeric < kNamedLevels; ++numeric) {
        if (strcasecmp(name.c_str(), levelName(numeric)) == 0) {
            return numeric;
        }
    }
    constexpr struct {
        const char* name;
        int numeric;
    } kOthers[] = {{"err", 3}, {"warning", 4}, {"enterleave", 8}};
    for (const auto& other : kOthers) {
        if (strcasecmp(name.c_str(), other.name) == 0) {
            return other.numeric;
        }
    }
    return -1;
}

// Calls `use` with each of the words that are joined by ';'.
template <typename Use>
void forEachWord(const std::string& words, Use use) {
    std::string::size_type start = 0;
    for (std::string::size_type end = 0; end != std::string::npos; start = end + 1) {
        end = words.find(';', start);
        use(words.substr(start, end - start));
    }
}

// Words joined by ';', each of them a level, "upto:LEVEL" for it and all that is graver, "all", or a mask "0x1ff". A
// '-' in front takes its levels out again. Words count from left to right; a list that begins with '-' starts from
// "all":
//
//     err;warning     upto:info     all;-enterleave     -debug     0x48
class SORREL_LOCAL LevelSet {
public:
    constexpr explicit LevelSet(std::uint32_t mask) : m_mask(mask) {}

    // Throws std::invalid_argument with the word that is none: "\"eror\" is no level".
    explicit LevelSet(const std::string& words) : m_mask(words.rfind('-', 0) == 0 ? kAll : 0) {
        forEachWord(words, [this](const std::string& word) {
            if (word.rfind('-', 0) == 0) {
                m_mask &= ~maskOf(word.substr(1));
            } else {
                m_mask |= maskOf(word);
            }
        });
    }

    // Whether a component with this mask would let the level pass.
    bool contains(const sorrel_level& level) const { return (level.mask & m_mask) != 0; }

    std::uint32_t mask() const { return m_mask; }

private:
    static constexpr std::uint32_t kAll = 0xffffffff;

    static std::uint32_t maskOf(const std::string& word) {
        constexpr std::string_view kUpTo = "upto:";
        if (word == "all") {
            return kAll;
        }
        if (word.rfind("0x", 0) == 0) {
            return numberOf(word);
        }
        const bool isUpTo = word.compare(0, kUpTo.size(), kUpTo) == 0;
        const int numeric = levelNumeric(isUpTo ? word.substr(kUpTo.size()) : word);
        if (numeric == -1) {
            throw std::invalid_argument("\"" + word + "\" is no level");
        }
        return isUpTo ? (2U << numeric) - 1 : 1U << numeric;
    }

    static std::uint32_t numberOf(const std::string& word) {
        std::uint32_t number = 0;
        const char* const end = word.data() + word.size();
        const std::from_chars_result result = std::from_chars(word.data() + 2, end, number, 16);
        if (result.ec != std::errc() || result.ptr != end) {
            throw std::invalid_argument("\"" + word + "\" is no mask of 32 bits");
        }
        return number;
    }

    std::uint32_t m_mask;
};

} // namespace sorrel

#endif // SORREL_LEVEL_SET_HPP
