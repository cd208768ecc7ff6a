// Formats and their arguments: what is formatted plainly is what the C library prints, byte for byte, and what is not
// leaves the arguments as they were.
#include "core/plain_format.hpp"

#include "support/difference.hpp"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <memory>
#include <string>

#pragma GCC diagnostic ignored "-Wformat-nonliteral" // they are made up

// The sanitizer's own check of formats runs behind the end of an incomplete directive.
extern "C" const char* __asan_default_options() {
    return "check_printf=0";
}

namespace {

constexpr std::size_t kUsualSize = 2048;
constexpr int kMostDirectives = 3;
constexpr int kRoundingModes[] = {FE_TONEAREST, FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
constexpr const char* kOptions[] = {"",    "",    "",    "",    "",     ".", ".0", ".1", ".3", ".6", ".9",
                                    ".10", ".17", ".40", ".99", ".100", "5", "-8", "+",  "#",  " ",  "05.1"};
constexpr const char* kIncomplete[] = {"", "", "", "%", "%l", "%ll", "%z", "%.", "%.1", "%.12", "%5"};

enum class Kind { kInt, kLong, kPointer, kDouble, kText };

struct Conversion {
    const char* text;
    Kind kind;    // of the argument
    bool isPlain; // formatted without vsnprintf, unless an option or the value raises a doubt
};

constexpr Conversion kConversions[] = {
    {"d", Kind::kInt, true},     {"i", Kind::kInt, true},     {"u", Kind::kInt, true},      {"x", Kind::kInt, true},
    {"c", Kind::kInt, true},     {"ld", Kind::kLong, true},   {"li", Kind::kLong, true},    {"lu", Kind::kLong, true},
    {"lx", Kind::kLong, true},   {"lld", Kind::kLong, true},  {"lli", Kind::kLong, true},   {"llu", Kind::kLong, true},
    {"llx", Kind::kLong, true},  {"zd", Kind::kLong, true},   {"zi", Kind::kLong, true},    {"zu", Kind::kLong, true},
    {"zx", Kind::kLong, true},   {"p", Kind::kPointer, true}, {"f", Kind::kDouble, true},   {"f", Kind::kDouble, true},
    {"f", Kind::kDouble, true},  {"s", Kind::kText, true},    {"s", Kind::kText, true},     {"X", Kind::kInt, false},
    {"o", Kind::kInt, false},    {"hhd", Kind::kInt, false},  {"hd", Kind::kInt, false},    {"lX", Kind::kLong, false},
    {"jd", Kind::kLong, false},  {"td", Kind::kLong, false},  {"lf", Kind::kDouble, false}, {"F", Kind::kDouble, false},
    {"g", Kind::kDouble, false}, {"e", Kind::kDouble, false}, {"a", Kind::kDouble, false},
};

// As vsnprintf prints it, without what would be cut, and whether all of it was printed.
using Printed = std::pair<std::string, bool>;

Printed printed(std::size_t size, const char* format, va_list args) {
    const std::unique_ptr<char[]> text(new char[size]());
    const int length = std::vsnprintf(text.get(), size, format, args);
    return {text.get(), length >= 0 && static_cast<std::size_t>(length) < size};
}

// The memory has exactly the size, so that the sanitizer sees what is written behind it. A list that was not changed
// prints the same afterwards. What is plain and fits must have been formatted.
void compare(bool isPlain, std::size_t size, const char* format, ...) {
    va_list args;
    va_list untouched;
    va_start(args, format);
    va_copy(untouched, args);
    const std::unique_ptr<char[]> text(new char[size]);
    std::memset(text.get(), 'x', size);
    const std::size_t length = sorrel::formatPlainly(text.get(), size, format, args);
    const Printed expected = printed(size, format, untouched);
    if (length != sorrel::kNotPlain) {
        expectSame("nothing is cut", expected.second ? 1 : 0, 1);
        expectSame(format, std::string(text.get(), length), expected.first);
        expectSame("the end of the text", static_cast<int>(text[length]), 0);
    } else if (isPlain && expected.second) {
        expectSame(format, std::string("left to vsnprintf"), expected.first);
    }
    expectSame("the arguments afterwards", printed(size, format, args), expected);
    va_end(untouched);
    va_end(args);
}

// As people write them, exact halves of the last digit, and any at all.
double anyDouble(FuzzedDataProvider& data) {
    constexpr double kDivisors[] = {1, 2, 4, 16, 128, 1024, 2048, 10, 1000, 1000000};
    if (data.ConsumeBool()) {
        return data.ConsumeIntegral<std::int32_t>() / data.PickValueInArray(kDivisors);
    }
    const std::uint64_t bits = data.ConsumeIntegral<std::uint64_t>();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Adds literals, directives and their arguments until the data want no more.
class Comparison {
public:
    explicit Comparison(FuzzedDataProvider& data) : m_data(data), m_mode(data.PickValueInArray(kRoundingModes)) {
        addLiteral();
    }

    template <int kDirectives = 0, typename... Arguments>
    void run(Arguments... arguments) {
        if constexpr (kDirectives < kMostDirectives) {
            if (m_data.ConsumeBool()) {
                return addDirective<kDirectives + 1>(arguments...);
            }
        }
        const char* const incomplete = m_data.PickValueInArray(kIncomplete);
        m_format += incomplete;
        m_isPlain = m_isPlain && *incomplete == '\0';
        const std::size_t size = m_data.ConsumeBool() ? kUsualSize : m_data.ConsumeIntegralInRange<std::size_t>(1, 64);
        std::fesetround(m_mode);
        compare(m_isPlain, size, m_format.c_str(), arguments...);
        std::fesetround(FE_TONEAREST);
    }

private:
    // With doubled percent signs, and mostly short.
    void addLiteral() {
        const std::string literal = m_data.ConsumeRandomLengthString(24);
        for (const char character : std::string(literal.c_str())) {
            m_format += character == '%' ? std::string("%%") : std::string(1, character);
        }
    }

    template <int kDirectives, typename... Arguments>
    void addDirective(Arguments... arguments) {
        const Conversion& conversion = m_data.PickValueInArray(kConversions);
        const std::string option = m_data.PickValueInArray(kOptions);
        const bool isPrecision = conversion.kind == Kind::kDouble && option[0] == '.' && option.size() <= 3;
        m_isPlain = m_isPlain && conversion.isPlain && (option.empty() || isPrecision);
        m_format += '%' + option + conversion.text;
        addLiteral();
        switch (conversion.kind) {
        case Kind::kInt: {
            const int value = m_data.ConsumeIntegral<int>();
            return add<kDirectives>(value, *conversion.text != 'c' || value % 256 != 0, arguments...);
        }
        case Kind::kLong:
            return add<kDirectives>(m_data.ConsumeIntegral<long>(), true, arguments...);
        case Kind::kPointer: {
            const auto value = m_data.ConsumeIntegral<std::uintptr_t>();
            return add<kDirectives>(reinterpret_cast<const void*>(value), value != 0, arguments...);
        }
        case Kind::kDouble: {
            const double value = anyDouble(m_data);
            return add<kDirectives>(value, std::isfinite(value) && m_mode == FE_TONEAREST, arguments...);
        }
        case Kind::kText:
            std::string& text = m_texts[kDirectives - 1];
            text = m_data.ConsumeRandomLengthString(64);
            const bool isNull = text == "0";
            return add<kDirectives>(isNull ? nullptr : text.c_str(), !isNull, arguments...);
        }
    }

    template <int kDirectives, typename Value, typename... Arguments>
    void add(Value value, bool isPlain, Arguments... arguments) {
        m_isPlain = m_isPlain && isPlain;
        run<kDirectives>(arguments..., value);
    }

    FuzzedDataProvider& m_data;
    int m_mode;
    std::string m_format;
    bool m_isPlain = true;
    std::string m_texts[kMostDirectives]; // that arguments point to
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzedDataProvider data(bytes, size);
    Comparison(data).run();
    return 0;
}
