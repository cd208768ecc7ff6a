// Formatting without vsnprintf of what nearly all log lines are made of.
#ifndef SORREL_CORE_PLAIN_FORMAT_HPP
#define SORREL_CORE_PLAIN_FORMAT_HPP

#include <cstdarg>
#include <cstddef>

namespace sorrel {

// Formats into `text`, which has room for `size` characters (one or more), byte for byte as vsnprintf would, and
// returns the length. Only %s %d %i %u %x %c %p %%, with l, ll or z, and %f, with a precision or without. At the first
// doubt (a flag, a width, a null string, text that would be cut, another locale's radix or rounding mode) the result is
// kNotPlain: then the content of `text` means nothing, and `args` are as they were, for vsnprintf.
inline constexpr std::size_t kNotPlain = static_cast<std::size_t>(-1);
std::size_t formatPlainly(char* text, std::size_t size, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

} // namespace sorrel

#endif // SORREL_CORE_PLAIN_FORMAT_HPP
