// A format and its arguments, formatted by vsnprintf and without it.
#ifndef SORREL_TESTS_BOTH_FORMATTERS_HPP
#define SORREL_TESTS_BOTH_FORMATTERS_HPP

#include "core/plain_format.hpp"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// What became of a format.
enum class Formatted {
    kPlainly,     // without vsnprintf, with the same result
    kNot,         // it was left to vsnprintf, with its arguments as they were
    kDifferently, // the library is wrong
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // they are made up

class BothFormatters {
public:
    static constexpr std::size_t kUsualSize = 2048;

    // The texts have room for `size` characters, the terminating zero included.
    explicit BothFormatters(std::size_t size = kUsualSize)
        : m_size(size), m_plain(size + kGuard.size()), m_printed(size), m_again(size) {}

    // Both read the very same list of arguments, one after the other.
    Formatted format(const char* format, ...) {
        kGuard.copy(m_plain.data() + m_size, kGuard.size());
        va_list args;
        va_list untouched;
        va_start(args, format);
        va_copy(untouched, args);
        m_plainLength = sorrel::formatPlainly(m_plain.data(), m_size, format, args);
        m_printedLength = std::vsnprintf(m_printed.data(), m_size, format, args);
        const Formatted result = m_plainLength == sorrel::kNotPlain ? compareLists(format, untouched) : compareTexts();
        va_end(untouched);
        va_end(args);
        return result;
    }

    std::size_t length() const { return static_cast<std::size_t>(m_printedLength); }

    // For a failed comparison.
    std::string description() const {
        const bool left = m_plainLength == sorrel::kNotPlain;
        return "vsnprintf: " + std::to_string(m_printedLength) + " characters, '" + m_printed.data() +
               "'\nplainly: " + (left ? "not" : std::to_string(m_plainLength) + " characters, '" + plainText() + "'");
    }

private:
    inline static const std::string kGuard = "not to be written";

    Formatted compareTexts() const {
        const bool same = m_printedLength >= 0 && m_plainLength == length() && m_plainLength < m_size &&
                          std::memcmp(m_plain.data(), m_printed.data(), m_plainLength + 1) == 0;
        return same && isGuardWhole() ? Formatted::kPlainly : Formatted::kDifferently;
    }

    // What a list prints that nobody has touched is what the given one has printed.
    Formatted compareLists(const char* format, va_list untouched) {
        const int length = std::vsnprintf(m_again.data(), m_size, format, untouched);
        const bool same = length == m_printedLength && std::strcmp(m_again.data(), m_printed.data()) == 0;
        return same && isGuardWhole() ? Formatted::kNot : Formatted::kDifferently;
    }

    bool isGuardWhole() const { return std::memcmp(m_plain.data() + m_size, kGuard.data(), kGuard.size()) == 0; }

    std::string plainText() const { return std::string(m_plain.data(), strnlen(m_plain.data(), m_size)); }

    std::size_t m_size;
    std::vector<char> m_plain; // with the guard behind it
    std::vector<char> m_printed;
    std::vector<char> m_again;
    std::size_t m_plainLength = 0;
    int m_printedLength = 0;
};

// Without a comparison: kNotPlain, or how long the text is.
inline std::size_t plainLength(const char* format, ...) {
    char text[100];
    va_list args;
    va_start(args, format);
    const std::size_t length = sorrel::formatPlainly(text, sizeof text, format, args);
    va_end(args);
    return length;
}

#pragma GCC diagnostic pop

template <typename... Arguments>
testing::AssertionResult becomes(Formatted expected, std::size_t size, const std::string& format,
                                 Arguments... arguments) {
    BothFormatters both(size);
    const Formatted formatted = both.format(format.c_str(), arguments...);
    if (formatted == expected) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << '\'' << format << "' in " << size << "\n" << both.description();
}

// Whether it is formatted without vsnprintf, but as vsnprintf does it.
template <typename... Arguments>
testing::AssertionResult isPlain(const std::string& format, Arguments... arguments) {
    return becomes(Formatted::kPlainly, BothFormatters::kUsualSize, format, arguments...);
}

// Whether it is left to vsnprintf.
template <typename... Arguments>
testing::AssertionResult isLeft(const std::string& format, Arguments... arguments) {
    return becomes(Formatted::kNot, BothFormatters::kUsualSize, format, arguments...);
}

#endif // SORREL_TESTS_BOTH_FORMATTERS_HPP
