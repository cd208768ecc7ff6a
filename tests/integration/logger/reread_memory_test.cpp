// Libraries that come and go with re-reads: the memory that the C library keeps for the end of the process.
#include "logger_fixture.hpp"

#include <cstddef>
#include <gtest/gtest.h>
#include <malloc.h>

namespace {

// Nobody watches a file, since there is none when the logger is built: each is read as often as it is named.
class RereadMemory : public LoggerFixture {
protected:
    RereadMemory() {
        removeConfiguration();
        configureApp("player", target("static_object"));
        configureApp("viewer", "");
        sorrel_create_component("net", SR_ERR, "");
    }

    // A library that has a static object is loaded and unloaded so many times.
    static void loadAndUnload(int times) {
        for (int i = 0; i < times; ++i) {
            sorrel_set_applicationname("player");
            ASSERT_TRUE(isLibraryOpen(pluginPath("static_object")));
            sorrel_set_applicationname("viewer");
            ASSERT_FALSE(isLibraryOpen(pluginPath("static_object")));
            journal::clear();
        }
    }

    static std::size_t usedBytes() {
        const auto all = mallinfo2();
        return all.uordblks + all.hblkhd; // what is large has a mapping of its own
    }
};

} // namespace

TEST_F(RereadMemory, ExitHandlersOfLibrariesThatAreGoneTakeNone) {
    if (usedBytes() == 0) {
        GTEST_SKIP() << "a sanitizer's allocator tells nothing";
    }
    constexpr std::size_t kAllowedBytes = 16384; // what the allocator itself keeps goes up and down by less
    loadAndUnload(100);
    const std::size_t before = usedBytes();
    loadAndUnload(2000); // a handler that is kept takes 32 bytes each time, or 16 with 32 bits
    EXPECT_LE(usedBytes(), before + kAllowedBytes);
}
