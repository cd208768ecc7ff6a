// Texts that are formatted a second time: what becomes of them takes no argument, whatever they hold.
#include "core/second_pass.hpp"

#include "oracle/directives.hpp"
#include "support/difference.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <memory>
#include <printf.h>

// What vsnprintf becomes where the compiler checks for overflows: it ends the process for a %n.
extern "C" int __vsnprintf_chk(char* text, size_t size, int flag, size_t objectSize, const char* format, va_list args);

// The sanitizer's own check of formats runs behind the end of an incomplete directive.
extern "C" const char* __asan_default_options() {
    return "check_printf=0";
}

namespace {

constexpr std::size_t kTextSize = 2048;

// An exact copy of the text, so that the sanitizer sees a byte that is read behind it.
std::string argumentless(const std::string& text) {
    const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    const auto out = std::make_unique<char[]>(sorrel::kSecondPassSize);
    std::memset(out.get(), 'x', sorrel::kSecondPassSize);
    sorrel::makeArgumentless(copy.get(), *reinterpret_cast<char(*)[sorrel::kSecondPassSize]>(out.get()));
    return std::string(out.get(), strnlen(out.get(), sorrel::kSecondPassSize));
}

// As the C library prints it with these arguments.
std::string printed(const char* format, ...) {
    const auto text = std::make_unique<char[]>(kTextSize);
    errno = ENOENT; // for %m
    va_list args;
    va_start(args, format);
    __vsnprintf_chk(text.get(), kTextSize, 1, kTextSize, format, args);
    va_end(args);
    return std::string(text.get(), strnlen(text.get(), kTextSize));
}

template <typename Argument>
std::string printedWith(const std::string& format, Argument argument) {
    return printed(format.c_str(), argument, argument, argument, argument, argument, argument, argument, argument);
}

// The types of the arguments as the C library sees them, at most eight of them; false when there are more.
bool getTypes(const std::string& text, std::vector<int>& types) {
    types.resize(8);
    const std::size_t count = parse_printf_format(text.c_str(), types.size(), types.data());
    types.resize(std::min(count, types.size()));
    return count == types.size();
}

bool areAll(const std::vector<int>& types, const std::set<int>& kinds) {
    return std::all_of(types.begin(), types.end(), [&](int type) { return kinds.count(type) != 0; });
}

// What the text becomes is what the C library makes of it with arguments of nothing, as far as they are of one kind.
void compareWithNothing(const std::string& text, const std::string& format) {
    std::vector<int> types;
    if (!getTypes(text, types)) {
        return;
    }
    if (types.empty() && !oracle::isSpecial(text)) {
        expectSame("text without arguments", format, text);
    }
    if (types.empty() || !oracle::isWellFormed(text)) {
        return;
    }
    if (areAll(types, {PA_INT, PA_INT | PA_FLAG_SHORT, PA_INT | PA_FLAG_LONG, PA_INT | PA_FLAG_LONG_LONG})) {
        expectSame("numbers", printed(format.c_str()), printedWith(text, 0L));
    } else if (areAll(types, {PA_DOUBLE})) {
        expectSame("floating-point numbers", printed(format.c_str()), printedWith(text, 0.0));
    } else if (areAll(types, {PA_STRING})) {
        expectSame("texts", printed(format.c_str()), printedWith(text, ""));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    if (text.size() >= kTextSize) {
        return -1;
    }
    const std::string format = argumentless(text);
    std::vector<int> types;
    expectSame("ends in its buffer", format.size() < sorrel::kSecondPassSize ? 1 : 0, 1);
    expectSame("takes no arguments", getTypes(format, types) && types.empty() ? 0 : 1, 0);
    expectSame("ends in the message", printed(format.c_str()).size() < kTextSize ? 1 : 0, 1);
    expectSame("does not depend on words", printedWith(format, "first"), printedWith(format, "second"));
    expectSame("does not depend on numbers", printedWith(format, 1.5), printedWith(format, -2.25));
    compareWithNothing(text, format);
    return 0;
}
