// Formatting without vsnprintf of what nearly all log lines are made of.
#include "core/plain_format.hpp"

#include <cfloat>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fpu_control.h>
#include <iterator>
#include <langinfo.h>
#include <sys/types.h>
#include <type_traits>

namespace {

constexpr int kUsualPrecision = 6;
constexpr int kHexadecimal = 16;
constexpr int kShortLiteral = 3; // characters that are copied one by one, which is cheaper than two calls

// A copy of the caller's arguments.
class Arguments {
public:
    explicit Arguments(va_list args) { va_copy(m_list, args); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() { va_end(m_list); }

    template <typename Type>
    Type next() {
        return va_arg(m_list, Type);
    }

private:
    va_list m_list;
};

// The text so far. False where it would not fit whole.
class Text {
public:
    Text(char* begin, std::size_t size) : m_begin(begin), m_at(begin), m_end(begin + size - 1) {}

    bool append(const char* from, std::size_t count) {
        if (count > static_cast<std::size_t>(m_end - m_at)) {
            return false;
        }
        std::memcpy(m_at, from, count);
        m_at += count;
        return true;
    }

    bool append(char character) {
        if (m_at == m_end) {
            return false;
        }
        *m_at++ = character;
        return true;
    }

    // As std::to_chars writes it.
    template <typename... Value>
    bool appendNumber(Value... value) {
        const std::to_chars_result result = std::to_chars(m_at, m_end, value...);
        m_at = result.ec == std::errc() ? result.ptr : m_at;
        return result.ec == std::errc();
    }

    // A dot and the digits of the fraction, with its zeros: as many as the power of ten has.
    bool appendFraction(std::uint64_t fraction, std::uint64_t power) {
        char* const dot = m_at;
        if (!appendNumber(fraction + power)) {
            return false;
        }
        *dot = '.'; // instead of the 1 of the power
        return true;
    }

    std::size_t finish() {
        *m_at = '\0';
        return static_cast<std::size_t>(m_at - m_begin);
    }

private:
    char* const m_begin;
    char* m_at;
    char* const m_end; // of the characters; the terminating zero has its place behind it
};

// What stands before the next percent sign or the end. Moves `format` there.
bool appendLiteral(Text& text, const char*& format) {
    for (int i = 0; i < kShortLiteral; ++i, ++format) {
        if (*format == '%' || *format == '\0') {
            return true;
        }
        if (!text.append(*format)) {
            return false;
        }
    }
    const char* const begin = format;
    format = strchrnul(format, '%');
    return text.append(begin, static_cast<std::size_t>(format - begin));
}

bool appendString(Text& text, const char* string) {
    return string != nullptr && text.append(string, std::strlen(string));
}

// A zero character ends the text for its readers, but not for vsnprintf.
bool appendCharacter(Text& text, int character) {
    return static_cast<char>(character) != '\0' && text.append(static_cast<char>(character));
}

bool appendPointer(Text& text, const void* pointer) {
    return pointer != nullptr && text.append('0') && text.append('x') &&
           text.appendNumber(reinterpret_cast<std::uintptr_t>(pointer), kHexadecimal);
}

bool hasUsualRadix() {
    const char* const radix = nl_langinfo(RADIXCHAR);
    return radix[0] == '.' && radix[1] == '\0';
}

// Where the control word of the floating-point unit holds the rounding mode.
#if defined(__x86_64__) || defined(__i386__)
constexpr fpu_control_t kRoundingBits = _FPU_RC_ZERO;
#elif defined(__aarch64__)
constexpr fpu_control_t kRoundingBits = _FPU_FPCR_RM_MASK;
#elif defined(__arm__) && !defined(__SOFTFP__)
constexpr fpu_control_t kRoundingBits = _FPU_MASK_RM;
#else
constexpr fpu_control_t kRoundingBits = ~fpu_control_t(0); // any bit is a doubt
#endif

// As the C library looks at it: on x86 it goes by the mode of long double. Asking it would take libm, and trying would
// leave a floating-point exception behind.
bool roundsToNearest() {
    fpu_control_t control = 0;
    _FPU_GETCW(control);
    return (control & kRoundingBits) == 0;
}

constexpr std::uint64_t kPowersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

constexpr int kFractionBits = DBL_MANT_DIG - 1;
constexpr unsigned int kExponentMask = 2 * DBL_MAX_EXP - 1; // all of them set: infinity, or not a number

// A double, taken apart without an operation on it, which could leave a floating-point exception behind.
struct DoubleParts {
    explicit DoubleParts(double value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        isNegative = bits >> 63U != 0;
        exponent = static_cast<unsigned int>(bits >> kFractionBits) & kExponentMask;
        mantissa = (bits & (kLeadingBit - 1)) | kLeadingBit;
    }

    static constexpr std::uint64_t kLeadingBit = std::uint64_t(1) << kFractionBits;

    bool isNegative;
    unsigned int exponent;  // as stored
    std::uint64_t mantissa; // with the leading bit, which smallest numbers and zero do not have
};

// The absolute value times the power of ten, rounded exactly, half to even. False when that cannot be done here.
bool scaled([[maybe_unused]] const DoubleParts& parts, [[maybe_unused]] std::uint64_t power,
            [[maybe_unused]] std::uint64_t& out) {
#ifdef __SIZEOF_INT128__
    __extension__ using Wide = unsigned __int128;
    // The value is the mantissa over two to this power.
    const int shift = DBL_MAX_EXP - 1 + kFractionBits - static_cast<int>(parts.exponent);
    if (shift <= 0 || shift > 100) {
        return false;
    }
    const Wide product = Wide(parts.mantissa) * power;
    const Wide half = Wide(1) << (shift - 1);
    const Wide rest = product & (half + half - 1);
    Wide result = product >> shift;
    result += rest > half || (rest == half && (result & 1) != 0) ? 1 : 0;
    out = static_cast<std::uint64_t>(result);
    return out == result;
#else
    return false;
#endif
}

bool appendFixed(Text& text, double value, std::size_t precision) {
    const DoubleParts parts(value);
    if (parts.exponent == kExponentMask || !hasUsualRadix() || !roundsToNearest()) {
        return false;
    }
    std::uint64_t digits = 0;
    if (precision >= std::size(kPowersOfTen) || !scaled(parts, kPowersOfTen[precision], digits)) {
        return text.appendNumber(value, std::chars_format::fixed, static_cast<int>(precision));
    }
    const std::uint64_t power = kPowersOfTen[precision];
    return (!parts.isNegative || text.append('-')) && text.appendNumber(digits / power) &&
           (precision == 0 || text.appendFraction(digits % power, power));
}

// The next argument, of the type or its unsigned sibling.
template <typename Signed>
bool appendInteger(Text& text, char conversion, Arguments& arguments) {
    using Unsigned = std::make_unsigned_t<Signed>;
    switch (conversion) {
    case 'd':
    case 'i':
        return text.appendNumber(arguments.next<Signed>());
    case 'u':
        return text.appendNumber(arguments.next<Unsigned>());
    case 'x':
        return text.appendNumber(arguments.next<Unsigned>(), kHexadecimal);
    default:
        return false;
    }
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

// Behind the dot: two digits at most, and the letter f.
bool appendWithPrecision(Text& text, const char*& format, Arguments& arguments) {
    std::size_t precision = 0;
    for (int digits = 0; digits < 2 && isDigit(*format); ++digits) {
        precision = precision * 10 + static_cast<std::size_t>(*format++ - '0');
    }
    return *format++ == 'f' && appendFixed(text, arguments.next<double>(), precision);
}

// Behind the first l: another one, perhaps, and an integer conversion.
bool appendLong(Text& text, const char*& format, Arguments& arguments) {
    if (*format == 'l') {
        ++format;
        return appendInteger<long long>(text, *format++, arguments);
    }
    return appendInteger<long>(text, *format++, arguments);
}

// Behind the percent sign. Moves `format` behind what it has read.
bool appendDirective(Text& text, const char*& format, Arguments& arguments) {
    const char letter = *format++;
    switch (letter) {
    case 's':
        return appendString(text, arguments.next<const char*>());
    case 'f':
        return appendFixed(text, arguments.next<double>(), kUsualPrecision);
    case '.':
        return appendWithPrecision(text, format, arguments);
    case 'c':
        return appendCharacter(text, arguments.next<int>());
    case 'p':
        return appendPointer(text, arguments.next<const void*>());
    case 'l':
        return appendLong(text, format, arguments);
    case 'z':
        return appendInteger<ssize_t>(text, *format++, arguments);
    case '%':
        return text.append('%');
    default:
        return appendInteger<int>(text, letter, arguments);
    }
}

} // namespace

std::size_t sorrel::formatPlainly(char* text, std::size_t size, const char* format, va_list args) {
    if (format == nullptr) {
        return kNotPlain;
    }
    Arguments arguments(args);
    Text output(text, size);
    while (appendLiteral(output, format)) {
        if (*format == '\0') {
            return output.finish();
        }
        ++format;
        if (!appendDirective(output, format, arguments)) {
            break;
        }
    }
    return kNotPlain;
}
