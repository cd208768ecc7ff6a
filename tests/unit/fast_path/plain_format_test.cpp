// Formatting without vsnprintf: integers, texts, what does not fit, and what is left to vsnprintf.
#include "both_formatters.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <limits>
#include <memory>
#include <set>
#include <type_traits>

// The sanitizers' own check of formats does not know all of them, and runs behind the end of an incomplete one.
extern "C" const char* __asan_default_options() {
    return "check_printf=0";
}

extern "C" const char* __tsan_default_options() {
    return "check_printf=0";
}

namespace {

// The ends of the type, and around each power of ten.
template <typename Integer>
std::set<Integer> numbers() {
    using Limits = std::numeric_limits<Integer>;
    std::set<Integer> found = {Limits::min(), Limits::min() + 1, Limits::max(), Limits::max() / 2, 0};
    Integer power = 1;
    for (int digits = 0; digits <= Limits::digits10; ++digits) {
        for (const Integer number : {power - 1, power, power + 1}) {
            found.insert(number);
            found.insert(static_cast<Integer>(0 - number));
        }
        power = digits < Limits::digits10 ? power * 10 : power;
    }
    return found;
}

template <typename Signed>
void expectPlainNumbers(const std::string& length) {
    for (const Signed number : numbers<Signed>()) {
        EXPECT_TRUE(isPlain("%" + length + "d", number));
        EXPECT_TRUE(isPlain("<%" + length + "i>", number));
    }
    for (const auto number : numbers<std::make_unsigned_t<Signed>>()) {
        EXPECT_TRUE(isPlain("%" + length + "u", number));
        EXPECT_TRUE(isPlain("<%" + length + "x>", number));
    }
}

// Expects the format to be left to vsnprintf, also behind directives that were read before there was a doubt.
template <typename... Arguments>
void expectLeft(const std::string& format, Arguments... arguments) {
    EXPECT_TRUE(isLeft(format, arguments...));
    EXPECT_TRUE(isLeft("%s %d %f " + format + " end", "before", 7, 2.5, arguments...));
}

// Expects it to be formatted wherever it fits, and only there.
template <typename... Arguments>
void expectPlainWhereItFits(const std::string& format, Arguments... arguments) {
    BothFormatters both;
    ASSERT_EQ(both.format(format.c_str(), arguments...), Formatted::kPlainly) << format << '\n' << both.description();
    for (std::size_t size = 1; size <= both.length() + 2; ++size) {
        const Formatted expected = size > both.length() ? Formatted::kPlainly : Formatted::kNot;
        EXPECT_TRUE(becomes(expected, size, format, arguments...));
    }
}

} // namespace

TEST(PlainFormat, FormatsIntegersOfEverySize) {
    expectPlainNumbers<int>("");
    expectPlainNumbers<long>("l");
    expectPlainNumbers<long long>("ll");
    expectPlainNumbers<ssize_t>("z");
}

TEST(PlainFormat, FormatsTexts) {
    for (const char* text : {"", "a", "a longer text", "%d %s %", "\t\n\x01\x7f", "\xc3\xa4 \xe2\x82\xac \xff\xfe"}) {
        EXPECT_TRUE(isPlain("%s", text));
        EXPECT_TRUE(isPlain("%s=%s;", text, text));
    }
}

TEST(PlainFormat, FormatsEveryCharacterButZero) {
    for (int character = 1; character <= UCHAR_MAX; ++character) {
        EXPECT_TRUE(isPlain("%c|", character));
        EXPECT_TRUE(isPlain("%c", character - 512)); // the lowest byte counts
    }
    expectLeft("%c", 0);
    expectLeft("%c", 256);
}

TEST(PlainFormat, FormatsPointers) {
    const int object = 0;
    EXPECT_TRUE(isPlain("%p", static_cast<const void*>(&object)));
    for (const std::uintptr_t address : numbers<std::uintptr_t>()) {
        EXPECT_TRUE(address == 0 || isPlain("%p", reinterpret_cast<const void*>(address)));
    }
}

TEST(PlainFormat, FormatsLiteralsOfEveryLength) {
    EXPECT_TRUE(isPlain(""));
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string literal =
            std::string("\xff-.0123456789lz \n\xc3\xa4 abcdefghijklmnopqrstuvwxyz").substr(0, length);
        EXPECT_TRUE(isPlain(literal));
        EXPECT_TRUE(isPlain(literal + "%d" + literal + "%s" + literal, 5, "text"));
    }
}

TEST(PlainFormat, FormatsPercentSigns) {
    for (const char* format : {"%%", "%%%%", "100%%", "%%d", "12345678%%", "%%123456789"}) {
        EXPECT_TRUE(isPlain(format));
    }
}

TEST(PlainFormat, ReadsMoreArgumentsThanFitIntoRegisters) {
    EXPECT_TRUE(isPlain("%d %s %lld %c %zu %x %u %p %i %ld %lx %llu", -1, "two", 3LL, '4', std::size_t(5), 6U, 7U,
                        static_cast<const void*>("8"), 9, 10L, 11UL, 12ULL));
    EXPECT_TRUE(isPlain("%f %d %f %s %f %f %.1f %f %f %f %lld %f %f %f %d", 1.0, 2, 3.0, "4", 5.0, 6.0, 7.0, 8.0, 9.0,
                        10.0, 11LL, 12.0, 13.0, 14.0, 15));
}

TEST(PlainFormat, FormatsWhatFitsAndLeavesWhatWouldBeCut) {
    expectPlainWhereItFits("");
    expectPlainWhereItFits("short");
    expectPlainWhereItFits("a literal of more than a few characters");
    expectPlainWhereItFits("%s", "text");
    expectPlainWhereItFits("%d", INT_MIN);
    expectPlainWhereItFits("%lld", LLONG_MIN);
    expectPlainWhereItFits("%x", 0xfedcba98U);
    expectPlainWhereItFits("%c", 'c');
    expectPlainWhereItFits("%%");
    expectPlainWhereItFits("%p", static_cast<const void*>("object"));
    expectPlainWhereItFits("%f", -123.456);
    expectPlainWhereItFits("%.0f", -123.456);
    expectPlainWhereItFits("%.9f", 0.123456789);
    expectPlainWhereItFits("%.20f", -123.456);
    expectPlainWhereItFits("%f", 1e300);
    expectPlainWhereItFits("%s: %d of %f %% and so on", "name", 12, 3.75);
}

TEST(PlainFormat, LeavesATextThatIsLongerThanAMessage) {
    const std::string text(3 * BothFormatters::kUsualSize, 'x');
    EXPECT_TRUE(isPlain("%s", text.c_str() + text.size() - 2047));
    EXPECT_TRUE(isLeft("%s", text.c_str() + text.size() - 2048));
    EXPECT_TRUE(isLeft("%s", text.c_str()));
    EXPECT_TRUE(isPlain(text.substr(0, 2047)));
    EXPECT_TRUE(isLeft(text.substr(0, 2048)));
    EXPECT_TRUE(isLeft(text));
}

TEST(PlainFormat, LeavesNull) {
    const void* const nothing = nullptr;
    expectLeft("%s", nothing);
    expectLeft("%p", nothing);
    EXPECT_EQ(plainLength(nullptr), sorrel::kNotPlain);
}

TEST(PlainFormat, LeavesFlagsWidthsAndPrecisionsOfIntegers) {
    for (const char* flags :
         {"5", "-5", "05", "0", "+", "-", " ", "#", "'", "I", ".", ".0", ".3", ".12", "5.3", "1$"}) {
        for (const char* conversion : {"d", "i", "u", "x"}) {
            EXPECT_TRUE(isLeft(std::string("%") + flags + conversion, 42));
        }
    }
    expectLeft("%*d", 5, 42);
    expectLeft("%.*d", 5, 42);
}

TEST(PlainFormat, LeavesOtherConversionsOfIntegers) {
    for (const char* directive : {"%o", "%X", "%hhd", "%hd", "%hu", "%hhx", "%ho", "%#X"}) {
        expectLeft(directive, 42);
    }
    for (const char* directive : {"%jd", "%ju", "%qd", "%Ld", "%llX", "%llo", "%5lld", "%llld"}) {
        expectLeft(directive, 42LL);
    }
    constexpr std::ptrdiff_t kDifference = 42;
    expectLeft("%td", kDifference);
    expectLeft("%lX", 42L);
    expectLeft("%zX", std::size_t(42));
}

TEST(PlainFormat, LeavesFlagsAndWidthsOfTexts) {
    for (const char* directive : {"%5s", "%-5s", "%.3s", "%.s", "%5.3s", "%1$s", "%-s"}) {
        EXPECT_TRUE(isLeft(directive, "text"));
    }
    expectLeft("%*s", 5, "text");
    expectLeft("%.*s", 2, "text");
    expectLeft("%5c", 'c');
    expectLeft("%-c", 'c');
    expectLeft("%20p", static_cast<const void*>("object"));
    expectLeft("%lp", static_cast<const void*>("object"));
}

TEST(PlainFormat, LeavesWideTextsAndCharacters) {
    for (const char* directive : {"%ls", "%S", "%lls"}) {
        expectLeft(directive, L"wide");
    }
    for (const char* directive : {"%lc", "%C"}) {
        expectLeft(directive, static_cast<wint_t>(L'w'));
    }
}

TEST(PlainFormat, LeavesAPercentSignWithAnythingBeforeIt) {
    for (const char* format : {"%5%", "%-%", "%l%", "%ll%", "%z%", "%.%", "%.3%"}) {
        expectLeft(format);
    }
}

TEST(PlainFormat, LeavesTheTextOfTheLastError) {
    errno = ENOENT;
    expectLeft("%m");
    EXPECT_EQ(errno, ENOENT);
}

TEST(PlainFormat, LeavesTheCountOfCharactersUnwritten) {
    int count = -1;
    EXPECT_EQ(plainLength("text%n", &count), sorrel::kNotPlain);
    long longCount = -1;
    EXPECT_EQ(plainLength("text%ln", &longCount), sorrel::kNotPlain);
    EXPECT_EQ(count, -1);
    EXPECT_EQ(longCount, -1);
}

TEST(PlainFormat, LeavesWhatIsNoDirective) {
    for (const char* format : {"%!", "%k", "%lk", "%llk", "%zk", "%.k", "%.1k", "%y", "% ", "%\n", "%\xff"}) {
        expectLeft(format);
    }
    for (const char* format : {"%zf", "%.-1f", "%.1.1f"}) {
        expectLeft(format, 2.5);
    }
}

TEST(PlainFormat, LeavesAnIncompleteDirectiveAndReadsNothingBehindIt) {
    for (const std::string format : {"%", "%l", "%ll", "%z", "%.", "%.1", "%.12", "100%", "a long text before a %"}) {
        const auto exact = std::make_unique<char[]>(format.size() + 1); // a sanitizer sees what is read behind it
        std::memcpy(exact.get(), format.c_str(), format.size() + 1);
        EXPECT_EQ(plainLength(exact.get()), sorrel::kNotPlain) << format;
        EXPECT_TRUE(isLeft(format));
        EXPECT_TRUE(isLeft("%d %s " + format, 5, "text"));
    }
}

TEST(PlainFormat, LeavesTheErrorNumberAlone) {
    errno = ENOENT;
    EXPECT_NE(plainLength("%s %d %f %.20f %x", "text", 5, 2.5, 0.1, 6U), sorrel::kNotPlain);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(plainLength("%5d", 5), sorrel::kNotPlain);
    EXPECT_EQ(errno, ENOENT);
}
