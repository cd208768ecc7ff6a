// Libraries that come and go with re-reads: the memory that the C library keeps for the end of the process.
#include "logger_fixture.hpp"

#include <cstddef>
#include <gtest/gtest.h>
#include <malloc.h>

namespace {

class RereadMemory : public LoggerFixture {
protected:
    // A library is loaded and unloaded so many times.
    void loadAndUnload(int times) {
        for (int i = 0; i < times; ++i) {
            configure(target("counting"));
            sorrel_set_applicationname("player"); // reads it again
            configure("");
            sorrel_set_applicationname("viewer");
            journal::clear();
        }
    }

    static std::size_t usedBytes() { return mallinfo2().uordblks; }
};

} // namespace

TEST_F(RereadMemory, ExitHandlersOfLibrariesThatAreGoneTakeNone) {
    if (usedBytes() == 0) {
        GTEST_SKIP() << "a sanitizer's allocator tells nothing";
    }
    constexpr std::size_t kAllowedBytes = 16384; // what the allocator itself keeps goes up and down by less
    removeConfiguration();                       // nobody watches, so that each file is read as often as it is named
    loadAndUnload(100);
    const std::size_t before = usedBytes();
    loadAndUnload(2000); // a handler that is kept takes 32 bytes each time
    EXPECT_LE(usedBytes(), before + kAllowedBytes);
}
