// What becomes of a formatted text before it is formatted again: no directive of it takes an argument any more.
#include "core/second_pass.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <printf.h>
#include <random>
#include <string>
#include <vector>

// What vsnprintf becomes where the compiler checks for overflows: it ends the process for a %n, and for arguments by
// position of which some are not used.
extern "C" int __vsnprintf_chk(char* text, size_t size, int flag, size_t objectSize, const char* format, va_list args);

// The sanitizers' own check of formats runs behind the end of an incomplete directive.
extern "C" const char* __asan_default_options() {
    return "check_printf=0";
}

extern "C" const char* __tsan_default_options() {
    return "check_printf=0";
}

namespace {

constexpr std::size_t kTextSize = 2048;

// The name keeps it from being printed as bytes when a test fails.
struct Directive {
    const char* text;
    const char* rendering;
};

std::ostream& operator<<(std::ostream& out, const Directive& directive) {
    return out << directive.text;
}

// An exact copy of the text, so that a sanitizer sees a byte that is read behind it.
std::string argumentless(const std::string& text) {
    const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    const auto out = std::make_unique<char[]>(sorrel::kSecondPassSize);
    std::memset(out.get(), 'x', sorrel::kSecondPassSize);
    sorrel::makeArgumentless(copy.get(), *reinterpret_cast<char(*)[sorrel::kSecondPassSize]>(out.get()));
    return out.get();
}

std::string formatWithoutArguments(const char* format, ...) {
    char text[kTextSize] = "";
    va_list args;
    va_start(args, format);
    __vsnprintf_chk(text, sizeof text, 1, sizeof text, format, args);
    va_end(args);
    return text;
}

// The text after both passes.
std::string printed(const std::string& text) {
    return formatWithoutArguments(argumentless(text).c_str());
}

std::size_t argumentCount(const std::string& format) {
    int types[8];
    return parse_printf_format(format.c_str(), 8, types);
}

class Rendered : public testing::TestWithParam<Directive> {};
class Untouched : public testing::TestWithParam<const char*> {};
class Escaped : public testing::TestWithParam<const char*> {};
class WritesNothing : public testing::TestWithParam<const char*> {};

const std::vector<Directive> kConversions = {{"%d", "0"},
                                             {"%i", "0"},
                                             {"%o", "0"},
                                             {"%u", "0"},
                                             {"%x", "0"},
                                             {"%X", "0"},
                                             {"%e", "0.000000e+00"},
                                             {"%E", "0.000000E+00"},
                                             {"%f", "0.000000"},
                                             {"%F", "0.000000"},
                                             {"%g", "0"},
                                             {"%G", "0"},
                                             {"%a", "0x0p+0"},
                                             {"%A", "0X0P+0"},
                                             {"%c", ""},
                                             {"%C", ""},
                                             {"%s", ""},
                                             {"%S", ""},
                                             {"%p", "(nil)"},
                                             {"%b", "0"},
                                             {"%B", "0"}};

const std::vector<Directive> kModified = {
    {"%hhd", "0"}, {"%hd", "0"}, {"%ld", "0"}, {"%lld", "0"}, {"%qd", "0"}, {"%jd", "0"},        {"%zd", "0"},
    {"%Zd", "0"},  {"%td", "0"}, {"%lx", "0"}, {"%lc", ""},   {"%ls", ""},  {"%Lf", "0.000000"}, {"%La", "0x0p+0"}};

const std::vector<Directive> kFlagged = {{"%+d", "+0"},       {"% d", " 0"},   {"%#x", "0"},
                                         {"%#o", "0"},        {"%'d", "0"},    {"%Id", "0"},
                                         {"%-3d|", "0  |"},   {"%03d", "000"}, {"%++d", "+0"},
                                         {"%-+ #0'Id", "+0"}, {"%#.0f", "0."}, {"%+-+-+-+-+-5d|", "+0   |"}};

const std::vector<Directive> kSized = {
    {"%5d", "    0"},     {"%.3d", "000"},  {"%5.3d", "  000"}, {"%.d", ""},           {"%.0d", ""},
    {"%5s|", "     |"},   {"%.5s", ""},     {"%1s|", " |"},     {"%-5s|", "     |"},   {"%3c|", "  |"},
    {"%1c|", "|"},        {"%.2f", "0.00"}, {"%.f", "0"},       {"%8.3f", "   0.000"}, {"%08.3f", "0000.000"},
    {"%7p|", "  (nil)|"}, {"%3S|", "   |"}, {"%-3c|", "  |"}};

const std::vector<Directive> kSizedByArgument = {{"%*d", "0"}, {"%.*d", ""},   {"%*.*f", "0"},     {"%-*d", "0"},
                                                 {"%*s", ""},  {"%.*s", ""},   {"%5.*f", "    0"}, {"%*.2f", "0.00"},
                                                 {"%*c", ""},  {"%*lld", "0"}, {"%0*x", "0"},      {"%*b", "0"}};

std::string nameOf(const testing::TestParamInfo<Directive>& info) {
    return "Number" + std::to_string(info.index);
}

} // namespace

TEST_P(Rendered, BecomesWhatItMakesOfNothing) {
    const std::string before = "a ";
    EXPECT_EQ(argumentless(before + GetParam().text), before + GetParam().rendering);
    EXPECT_EQ(printed(before + GetParam().text), before + GetParam().rendering);
}

INSTANTIATE_TEST_SUITE_P(SecondPassConversion, Rendered, testing::ValuesIn(kConversions), nameOf);
INSTANTIATE_TEST_SUITE_P(SecondPassLengthModifier, Rendered, testing::ValuesIn(kModified), nameOf);
INSTANTIATE_TEST_SUITE_P(SecondPassFlag, Rendered, testing::ValuesIn(kFlagged), nameOf);
INSTANTIATE_TEST_SUITE_P(SecondPassWidthAndPrecision, Rendered, testing::ValuesIn(kSized), nameOf);
INSTANTIATE_TEST_SUITE_P(SecondPassWidthByArgument, Rendered, testing::ValuesIn(kSizedByArgument), nameOf);

TEST_P(Untouched, GoesIntoTheSecondPassAsItStands) {
    EXPECT_EQ(argumentless(GetParam()), GetParam());
}

INSTANTIATE_TEST_SUITE_P(SecondPassPlain, Untouched,
                         testing::Values("", "hello", "100 $ * 1$d", "\x80\xff\n\t", "50%%", "%%d", "%%%%", "%m", "%5m",
                                         "%m %% %m", "% %", "%5%"));
INSTANTIATE_TEST_SUITE_P(SecondPassUnknown, Untouched,
                         testing::Values("%y", "%5y", "%ly", "%-k", "%\x80", "%.5-", "%$"));
INSTANTIATE_TEST_SUITE_P(SecondPassIncomplete, Untouched,
                         testing::Values("%", "100 %", "%%%", "%5", "%-", "%.", "%.3", "%l", "%ll", "%#0"));

TEST_P(Escaped, IsPrintedAsItStands) {
    const std::string text = GetParam();
    EXPECT_EQ(argumentCount(argumentless(text)), 0U) << argumentless(text);
    EXPECT_EQ(printed(text), text);
}

INSTANTIATE_TEST_SUITE_P(SecondPassPosition, Escaped,
                         testing::Values("%1$d", "%2$q", "%1$", "%1$s and %1$s", "%2$5.3f", "%1$n", "%1$m", "%1$y",
                                         "%1$*2$d", "%*1$d", "%.*1$f", "%01$d", "%0$d", "%999999999999$d", "%1$hhd",
                                         "%1$%", "%1$%d", "%1$%s", "%1$5%n", "%*1$%d", "%.*1$%d"));
INSTANTIATE_TEST_SUITE_P(SecondPassWidthOfSomethingUnknown, Escaped,
                         testing::Values("%*", "%*y", "%.*", "%*m", "%*.*k", "%*%", "%*%d", "%.*%n", "%*%s"));

TEST_P(WritesNothing, IsLeftOut) {
    EXPECT_EQ(argumentless(std::string("a") + GetParam() + "b"), "ab");
}

INSTANTIATE_TEST_SUITE_P(SecondPassCounter, WritesNothing,
                         testing::Values("%n", "%hn", "%hhn", "%ln", "%lln", "%jn", "%5n", "%-5.3n", "%*n", "%.*n"));

TEST(SecondPass, InterpretsADoubledPercentSignAndThePercentMAgain) {
    errno = ENOENT;
    EXPECT_EQ(printed("100%% %m"), "100% No such file or directory");
}

TEST(SecondPass, ReplacesEachDirectiveOfATextAndNothingElse) {
    EXPECT_EQ(argumentless("%d%% of %s: %n%5.1f%m %1$d%y"), "0%% of :   0.0%m %%1$d%y");
}

TEST(SecondPass, AWidthOrPrecisionThatIsTooLargeFillsTheMessageAndNoMore) {
    for (const char* const text : {"%2047d", "%2048d", "%99999d", "%2147483647d", "%2147483648d",
                                   "%99999999999999999999d", "%.2047d", "%.99999999999999999999d", "%.99999f",
                                   "%99999.99999f", "%99999s", "%99999c", "%99999a", "%99999p", "%-99999d"}) {
        EXPECT_EQ(printed(text).size(), kTextSize - 1) << text;
    }
}

TEST(SecondPass, AWidthOfPercentMIsNotFilledByMoreBlanksThanAMessageHolds) {
    EXPECT_EQ(argumentless("%4094m"), "%4094m");
    EXPECT_EQ(argumentless("%2147483000m"), "%4095m");
    EXPECT_EQ(argumentless("%-2147483000.3m"), "%-4095.3m");
    errno = ENOENT;
    EXPECT_EQ(printed("a%2147483000mb"), "a" + std::string(kTextSize - 2, ' '));
    const std::string text = "No such file or directory";
    EXPECT_EQ(printed("a%-2147483000mb"), "a" + text + std::string(kTextSize - 2 - text.size(), ' '));
}

TEST(SecondPass, ALengthModifierThatIsNotOneEndsTheDirective) {
    EXPECT_EQ(argumentless("%lhd %hhhn %qjd %Lzd %lll%d"), "%lhd %hhhn %qjd %Lzd %lll0");
}

TEST(SecondPass, AModifierOfNewerLibrariesIsPrintedAsItStands) {
    EXPECT_EQ(argumentless("%w8d %wf16n"), "%%w8d %%wf16n");
}

TEST(SecondPass, TheLongestResultOfATextFits) {
    for (const char* const part : {"%1$%", "%*%", "%*y", "%1$d", "%*1$d", "%%", "%n", "%d", "%w"}) {
        std::string text;
        while (text.size() + std::strlen(part) < kTextSize) {
            text += part;
        }
        const std::string result = argumentless(text);
        EXPECT_LT(result.size(), sorrel::kSecondPassSize - 1) << part << ": nothing was cut";
        EXPECT_EQ(argumentCount(result), 0U) << part;
    }
}

TEST(SecondPass, AResultThatDoesNotFitIsCutBehindWhatAMessageHolds) {
    const std::string text = std::string(1000, 'a') + "%2047d%2047d%2047d" + std::string(900, 'b') + "%s%%%m";
    const std::string result = argumentless(text);
    EXPECT_EQ(result.size(), sorrel::kSecondPassSize - 1);
    EXPECT_EQ(printed(text), std::string(1000, 'a') + std::string(1047, ' '));
}

TEST(SecondPass, ACutThroughADoubledPercentSignLeavesTheMessageWhole) {
    for (int blanks = 2000; blanks < 2048; ++blanks) {
        std::string text = "%" + std::to_string(blanks) + "d%2047d";
        while (text.size() + 2 < kTextSize) {
            text += "%%";
        }
        EXPECT_EQ(printed(text).size(), kTextSize - 1) << blanks;
    }
}

TEST(SecondPass, NoTextMakesAResultThatTakesAnArgument) {
    constexpr char kCharacters[] = "%%%%%%%%$$**..0123456789-+ #'IhlqLjzZtwdiouxXcCsSpaAeEfFgGnmbBvkrRDOUPT\x80";
    std::mt19937 random(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    std::uniform_int_distribution<std::size_t> anyCharacter(0, sizeof kCharacters - 2);
    std::uniform_int_distribution<std::size_t> anyLength(0, 24);
    for (int i = 0; i < 200000; ++i) {
        std::string text(anyLength(random), '\0');
        for (char& character : text) {
            character = kCharacters[anyCharacter(random)];
        }
        const std::string result = argumentless(text);
        ASSERT_EQ(argumentCount(result), 0U) << text << " became " << result;
    }
}

TEST(SecondPass, NoTextEndsTheProcessInTheCheckedFormatting) {
    constexpr char kCharacters[] = "%%%$*.0129-#lhdsnmfcy";
    std::mt19937 random(20240301); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    std::uniform_int_distribution<std::size_t> anyCharacter(0, sizeof kCharacters - 2);
    for (int i = 0; i < 50000; ++i) {
        std::string text(12, '\0');
        for (char& character : text) {
            character = kCharacters[anyCharacter(random)];
        }
        ASSERT_LT(printed(text).size(), kTextSize) << text;
    }
}
