// The memory of the targets that write to a service.
#include "datagram_service.hpp"
#include "loaded_target.hpp"
#include "replaced_new.hpp"
#include "temp_dir.hpp"

#include <gtest/gtest.h>

#include <malloc.h>
#include <string>

namespace {

class ServiceAllocations : public testing::TestWithParam<const char*> {
protected:
    // "journal, wait=0" as a line of the configuration.
    std::string line() const {
        const std::string words = GetParam();
        const std::size_t comma = words.find(',');
        return "target=" + targetPath(words.substr(0, comma)) + words.substr(comma) +
               ", socket=" + m_directory.file("socket") + "\n";
    }

    // Bytes that are allocated, after all that one round does.
    std::size_t allocatedAfterRound(LoadedTarget& target) {
        target.configure(line());
        target.say("hello");
        m_service.next();
        target.unload();
        return mallinfo2().uordblks;
    }

    TempDir m_directory;
    DatagramService m_service{m_directory.file("socket")};
};

std::string nameOf(const testing::TestParamInfo<const char*>& test) {
    constexpr const char* kNames[] = {"journal", "syslog", "syslog5424"};
    return kNames[test.index];
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Of, ServiceAllocations,
                         testing::Values("journal, wait=0", "syslog, wait=0", "syslog, format=5424"), nameOf);

TEST_P(ServiceAllocations, AMessageNeedsNoneOnceALongerOneHasBeenSaid) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "the sanitizer has taken operator new";
    }
    LoadedTarget target(m_directory, "/no.so", "");
    target.configure(line());
    TestMessage message;
    message.function = "a function whose name is long enough to need memory";
    message.text = std::string(2047, '\n');
    target.say(message);
    m_service.next();
    const long before = replacedNew::count;
    target.say(message);
    ++message.seconds;
    target.say(message);
    EXPECT_EQ(replacedNew::count, before);
    EXPECT_EQ(m_service.sent().size(), 2U);
}

TEST_P(ServiceAllocations, NoneIsLeftOfTargetsThatAreUnloaded) {
    LoadedTarget target(m_directory, "/no.so", "");
    for (int i = 0; i < 20; ++i) { // until the loader has all that it keeps
        allocatedAfterRound(target);
    }
    const std::size_t before = allocatedAfterRound(target);
    if (before == 0) {
        GTEST_SKIP() << "the sanitizer's allocator does not tell";
    }
    constexpr std::size_t kRounds = 100;
    constexpr std::size_t kSmallestChunk = 4 * sizeof(std::size_t);
    std::size_t after = 0;
    for (std::size_t i = 0; i < kRounds; ++i) {
        after = allocatedAfterRound(target);
    }
    EXPECT_LT(after, before + kRounds * kSmallestChunk); // the allocator counts some of what it keeps for itself
}
