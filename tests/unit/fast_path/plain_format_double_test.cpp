// Formatting without vsnprintf: numbers with a fraction, in every precision, rounding mode and locale.
#include "both_formatters.hpp"
#include "temp_dir.hpp"

#include <gtest/gtest.h>

#include <cfenv>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <limits>
#include <thread>
#ifdef __x86_64__
#include <fpu_control.h>
#include <immintrin.h>
#endif

namespace {

constexpr int kPrecisions = 100; // of at most two digits

// Halves of the last digit, ends of ranges, what people write, and the neighbours of all of them.
std::vector<double> values() {
    std::vector<double> found = {0,       0.5,     1.5,       2.5,    0.25,   0.75,  0.125,     0.375,       0.0625,
                                 0.1,     0.7,     3.14159,   1.005,  1e-3,   5e-7,  1.5e-6,    2.5e-6,      0.0000005,
                                 0.9,     9.5,     9.9999995, 99.995, 999.5,  0.95,  12345.678, 86399.999,   1e15 + 0.5,
                                 DBL_MIN, DBL_MAX, 4.9e-324,  1e-310, 1e-100, 1e-30, 1e-31,     1e22,        1e23,
                                 1e100,   1e300,   123456789, 1e9,    1e10,   1e18,  1e19,      1.8446744e13};
    for (int power = -110; power <= 70; ++power) { // also where the mantissa has just left the fraction, and 64 bits
        found.push_back(std::ldexp(1, power));
        found.push_back(std::ldexp(1.5, power));
        found.push_back(std::ldexp(0x1.0000000001p0, power));
    }
    const std::size_t count = found.size();
    for (std::size_t i = 0; i < count; ++i) {
        found.push_back(std::nextafter(found[i], 0.0));
        found.push_back(std::nextafter(found[i], DBL_MAX));
    }
    return found;
}

std::string directive(int precision) {
    return "%." + std::to_string(precision) + "f";
}

// Sets the mode of rounding as long as it lives.
class ScopedRounding {
public:
    explicit ScopedRounding(int mode) { EXPECT_EQ(std::fesetround(mode), 0); }
    ScopedRounding(const ScopedRounding&) = delete;
    ScopedRounding& operator=(const ScopedRounding&) = delete;
    ~ScopedRounding() { std::fesetround(FE_TONEAREST); }
};

#ifdef __x86_64__
// Sets the precision and the mode of the x87 unit as long as it lives. No exception is a trap.
class ScopedControlWord {
public:
    explicit ScopedControlWord(int bits) {
        _FPU_GETCW(m_before);
        constexpr int kMasked = 0x3f;
        fpu_control_t word = static_cast<fpu_control_t>(bits | kMasked);
        _FPU_SETCW(word);
    }
    ScopedControlWord(const ScopedControlWord&) = delete;
    ScopedControlWord& operator=(const ScopedControlWord&) = delete;
    ~ScopedControlWord() { _FPU_SETCW(m_before); }

private:
    fpu_control_t m_before = 0;
};

// Whatever mode is in effect, somewhere in the processor.
bool areSame(double value) {
    BothFormatters both;
    return both.format("%.1f %f %.30f", value, -value, value) != Formatted::kDifferently;
}
#endif

// Numbers whose last digit depends on the mode.
void expectLeftWithFractions() {
    for (const double value : {0.1, -0.1, 2.5, 1e22 / 3, 5e-7}) {
        EXPECT_TRUE(isLeft("%f", value));
        EXPECT_TRUE(isLeft("%s %.3f %d", "text", value, 5));
        EXPECT_TRUE(isLeft("%.20f", value));
    }
    EXPECT_TRUE(isPlain("%s %d", "text", 5));
}

// Makes locales, which differ from the usual one in their radix character.
class PlainFormatLocale : public testing::Test {
protected:
    PlainFormatLocale() {
        m_directory.write("characters",
                          "<code_set_name> SMALL\n<mb_cur_min> 1\n<mb_cur_max> 2\nCHARMAP\n<U0000> \\x00 NULL\n"
                          "<U002C> \\x2c COMMA\n<U066B> \\xd9\\xab SEPARATOR\nEND CHARMAP\n");
        makeLocale("comma", "<U002C>");
        makeLocale("separator", "<U066B>"); // of two bytes
        setenv("LOCPATH", m_directory.path().c_str(), 1);
    }

private:
    void makeLocale(const std::string& name, const std::string& radix) {
        m_directory.write(name + ".source", "LC_NUMERIC\ndecimal_point \"" + radix +
                                                "\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
        const std::string command = "cd " + m_directory.path() +
                                    " && localedef --quiet --force --charmap=./characters" + " --inputfile=./" + name +
                                    ".source ./" + name;
        EXPECT_LE(WEXITSTATUS(std::system(command.c_str())), 1) << command; // 1: made, although much is missing
    }

    TempDir m_directory;
};

} // namespace

TEST(PlainFormatDouble, FormatsEveryPrecision) {
    for (const double value : values()) {
        for (int precision = 0; precision < kPrecisions; precision = precision < 40 ? precision + 1 : precision + 19) {
            ASSERT_TRUE(isPlain(directive(precision), value));
            ASSERT_TRUE(isPlain(directive(precision), -value));
        }
    }
}

TEST(PlainFormatDouble, HasSixDigitsBehindTheDotUnlessToldOtherwise) {
    for (const double value : values()) {
        ASSERT_TRUE(isPlain("%f", value));
        ASSERT_TRUE(isPlain("%f %.f %.0f %.00f %.04f", -value, value, value, value, value));
    }
}

// Every digit that can stand before a half, in every precision that has exact halves in reach.
TEST(PlainFormatDouble, RoundsExactHalvesToTheEvenDigit) {
    for (int precision = 0; precision < 12; ++precision) {
        const double half = std::ldexp(1, -1 - precision); // has one digit more
        for (int odd = 1; odd < 4096; odd += 2) {
            ASSERT_TRUE(isPlain(directive(precision), odd * half));
        }
    }
}

TEST(PlainFormatDouble, LeavesLongerPrecisionsAndOtherWaysToWriteThem) {
    for (const char* directive : {"%.100f", "%.999f", "%.000f", "%.1lf", "%lf",  "%llf", "%5f",  "%-f",  "%+f",
                                  "% f",    "%05.1f", "%#.0f",  "%'f",   "%.1F", "%.1e", "%.1g", "%.1a", "%F",
                                  "%e",     "%g",     "%a",     "%E",    "%G",   "%A",   "%hf",  "%1$f"}) {
        EXPECT_TRUE(isLeft(directive, 2.5));
    }
    EXPECT_TRUE(isLeft("%.*f", 2, 2.5));
    EXPECT_TRUE(isLeft("%*f", 9, 2.5));
    EXPECT_TRUE(isLeft("%Lf", 2.5L));
    EXPECT_TRUE(isLeft("%.2Lf", 2.5L));
}

TEST(PlainFormatDouble, LeavesWhatIsNoNumber) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double value : {infinity, -infinity, nan, -nan}) {
        EXPECT_TRUE(isLeft("%f", value));
        EXPECT_TRUE(isLeft("%d %.0f %s", 5, value, "text"));
        EXPECT_TRUE(isLeft("%.20f", value));
    }
}

TEST(PlainFormatDouble, LeavesOtherModesOfRounding) {
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        const ScopedRounding rounding(mode);
        expectLeftWithFractions();
    }
    EXPECT_TRUE(isPlain("%f", 2.5));
}

#ifdef __x86_64__
TEST(PlainFormatDouble, GoesByTheModeThatTheCLibraryGoesBy) {
    for (const int mode : {_FPU_RC_UP, _FPU_RC_DOWN, _FPU_RC_ZERO}) {
        const ScopedControlWord word(_FPU_EXTENDED | mode);
        expectLeftWithFractions();
    }
    for (const auto mode : {_MM_ROUND_UP, _MM_ROUND_DOWN, _MM_ROUND_TOWARD_ZERO}) {
        _MM_SET_ROUNDING_MODE(static_cast<unsigned int>(mode));
        EXPECT_TRUE(areSame(0.25) && areSame(1.0 / 3) && areSame(1e22));
    }
    _MM_SET_ROUNDING_MODE(_MM_ROUND_NEAREST);
}

TEST(PlainFormatDouble, IsTheSameWithLessPreciseArithmetic) {
    for (const int precision : {_FPU_SINGLE, _FPU_DOUBLE}) {
        const ScopedControlWord word(precision);
        EXPECT_TRUE(areSame(0.25) && areSame(1.0 / 3) && areSame(1e22));
    }
}
#endif

TEST(PlainFormatDouble, RaisesNoFloatingPointException) {
    BothFormatters both;
    for (const char* format : {"%f", "%.0f", "%.20f"}) {
        for (const double value : {0.1, 2.0 / 3, 1e-5, DBL_MIN, 4.9e-324, 1e22}) {
            std::feclearexcept(FE_ALL_EXCEPT);
            both.format(format, value);
            EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0) << format << " of " << value;
        }
    }
}

TEST_F(PlainFormatLocale, FormatsWithADot) {
    for (const char* name : {"C", "C.UTF-8", "POSIX"}) {
        unsetenv("LOCPATH");
        ASSERT_NE(std::setlocale(LC_ALL, name), nullptr) << name;
        EXPECT_TRUE(isPlain("%f %.2f %.20f", 2.5, -0.125, 1e-5));
    }
}

TEST_F(PlainFormatLocale, LeavesAnotherRadixOfTheProcess) {
    for (const char* name : {"comma", "separator"}) {
        ASSERT_NE(std::setlocale(LC_NUMERIC, name), nullptr) << name;
        expectLeftWithFractions();
        EXPECT_TRUE(isLeft("%.0f", 2.5));
    }
    ASSERT_NE(std::setlocale(LC_NUMERIC, "C"), nullptr);
    EXPECT_TRUE(isPlain("%f", 2.5));
}

TEST_F(PlainFormatLocale, LeavesAnotherRadixOfTheThreadOnly) {
    for (const char* name : {"comma", "separator"}) {
        ASSERT_NE(std::setlocale(LC_NUMERIC, name), nullptr) << name;
        const locale_t other = duplocale(LC_GLOBAL_LOCALE);
        ASSERT_NE(std::setlocale(LC_NUMERIC, "C"), nullptr);
        const locale_t before = uselocale(other);
        expectLeftWithFractions();
        std::thread([] { EXPECT_TRUE(isPlain("%f", 2.5)); }).join();
        uselocale(before);
        EXPECT_TRUE(isPlain("%f", 2.5));
        freelocale(other);
    }
}

TEST_F(PlainFormatLocale, FormatsWithTheDotOfAThreadWhoseProcessHasAnotherRadix) {
    ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr);
    const locale_t usual = newlocale(LC_ALL_MASK, "C", nullptr);
    std::thread([usual] {
        uselocale(usual);
        EXPECT_TRUE(isPlain("%f", 2.5));
        uselocale(LC_GLOBAL_LOCALE);
        EXPECT_TRUE(isLeft("%f", 2.5));
    }).join();
    freelocale(usual);
}
