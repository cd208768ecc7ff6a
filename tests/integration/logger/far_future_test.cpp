// The time of a message, long after seconds have outgrown 32 bits.
#include "logger_fixture.hpp"

#include <sys/time.h>

namespace {

constexpr long long kStartOf2040 = 2208988800;

class FarFuture : public LoggerFixture {};

} // namespace

// The library's clock. Built as the library is, for 64 bits of time, and so under the name that the library calls.
int gettimeofday(timeval* now, void*) noexcept {
    *now = {kStartOf2040, 999999};
    return 0;
}

TEST_F(FarFuture, TheSecondsOfTheYear2040ReachATargetWhole) {
    configure(target("recording"));
    _sorrel(sorrel_create_component("net", SR_INFO, ""), SR_INFO, "text");
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].seconds, kStartOf2040);
    EXPECT_EQ(messages[0].microseconds, 999999);
}
