// The process id where every advice is taken and none is followed, as in emulators.
#include "process_id_checks.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>

namespace {

int advices = 0;

} // namespace

int madvise(void*, std::size_t, int) noexcept {
    ++advices;
    return 0;
}

TEST(ProcessIdIgnoredAdvice, IsAskedForEveryTime) {
    EXPECT_GT(advices, 0);
    EXPECT_EQ(timesAskedByFive(), 5);
}

TEST(ProcessIdIgnoredAdvice, IsRightInChildrenAndTheirChildren) {
    expectRightInChildren();
}

TEST(ProcessIdIgnoredAdvice, IsRightInThreads) {
    expectRightInThreads();
}
