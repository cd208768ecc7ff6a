// The control of the fuzzers: two planted bugs, which scripts/fuzz must report.
#include "oracle/value_grammars.hpp"
#include "support/difference.hpp"

#include <cstdint>
#include <memory>

namespace {

// The first bug: of a text that starts with "ov" it reads behind the buffer.
void readBuffer(const std::string& text) {
    constexpr std::size_t kSize = 8;
    const auto buffer = std::make_unique<char[]>(kSize);
    const volatile char* const last = buffer.get() + (text.rfind("ov", 0) == 0 ? kSize : kSize - 1);
    static_cast<void>(*last);
}

// The second bug: it does not know the plus sign.
int decimal(const std::string& text) {
    return text.rfind('+', 0) == 0 ? 0 : oracle::decimal(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    readBuffer(text);
    expectSame("planted number", decimal(text), oracle::decimal(text));
    return 0;
}
