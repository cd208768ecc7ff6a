// Threads with little stack.
#include "logger_fixture.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

using testing::Contains;
using testing::SizeIs;

namespace {

constexpr long kStackSize = 32768;

void onSmallStack(void* (*function)(void*), void* argument) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    const long size = std::max(kStackSize, sysconf(_SC_THREAD_STACK_MIN)); // which is more on some machines
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(size)), 0);
    pthread_t thread = {};
    ASSERT_EQ(pthread_create(&thread, &attributes, function, argument), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

void* logInEveryWay(void* component) {
    auto* const net = static_cast<sorrel_component*>(component);
    const std::string longText(3000, 'x');
    _sorrel(net, SR_INFO, "%.300f", 1e300);
    _sorrel(net, SR_INFO, "%s", longText.c_str());
    sor_syslog(net, SR_INFO, "%s %%.300f", "%.2000f");
    sorrel_dump(net, SR_INFO, longText.data(), 64);
    sorrel_enter_function(net, longText.c_str());
    sorrel_leave_function(net);
    return nullptr;
}

class SmallStack : public LoggerFixture {};

} // namespace

TEST_F(SmallStack, OfThirtyTwoKibibytesIsEnoughForEveryKindOfMessage) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers need more stack";
#endif
    configure(target("recording"));
    onSmallStack(logInEveryWay, sorrel_create_component("net", SR_ALL, "64=INFO"));
    EXPECT_THAT(journal::texts(), Contains(SizeIs(2047)));
    EXPECT_THAT(journal::texts(), SizeIs(9));
}
