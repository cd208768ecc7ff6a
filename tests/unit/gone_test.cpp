// Which containers are gone.
#include "container/gone.hpp"

#include <sorrel/log_target_container.hpp>

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using sorrel::CLogTargetContainer;

namespace {

// For the time before the end of a process, which comes once.
void forgetGone() {
    sorrel::someAreGone = false;
    for (auto& container : sorrel::goneContainers) {
        container = nullptr;
    }
}

class Gone : public testing::Test {
protected:
    CLogTargetContainer m_first{"", false, nullptr};
    CLogTargetContainer m_second{"", false, nullptr};
};

} // namespace

TEST_F(Gone, AreThoseThatWereMarked) {
    EXPECT_FALSE(isGone(m_first));
    sorrel::markGone(m_second);
    EXPECT_FALSE(isGone(m_first));
    EXPECT_TRUE(isGone(m_second));
    sorrel::markGone(m_first);
    EXPECT_TRUE(isGone(m_first));
    EXPECT_TRUE(isGone(m_second));
}

// As when two threads exit. As often as two seconds allow, where the threads share a processor.
TEST_F(Gone, AreBothOfTwoThatAreMarkedAtTheSameTime) {
    constexpr int kRounds = 20000;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    std::atomic<int> round{0};
    std::atomic<int> marked{0};
    std::thread other([&] {
        for (int i = 1; i <= kRounds; ++i) {
            while (round < i) {
            }
            sorrel::markGone(m_second);
            marked = i;
        }
    });
    for (int i = 1; i <= kRounds && std::chrono::steady_clock::now() < end; ++i) {
        forgetGone();
        round = i;
        sorrel::markGone(m_first);
        while (marked < i) {
        }
        EXPECT_TRUE(isGone(m_first) && isGone(m_second)) << "round " << i;
    }
    round = kRounds;
    other.join();
}
