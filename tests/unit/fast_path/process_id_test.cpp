// The process id where the kernel wipes the page in which it is kept.
#include "process_id_checks.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>

namespace {

// Not so in emulators, which take any advice.
bool kernelWipesPages() {
    constexpr int kNoSuchAdvice = -1;
    const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const bool wipes = madvise(page, size, kNoSuchAdvice) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0;
    munmap(page, size);
    return wipes;
}

const int kTimesAskedByFive = kernelWipesPages() ? 0 : 5;

} // namespace

TEST(ProcessId, IsKnownFromTheBeginning) {
    EXPECT_EQ(timesAskedByFive(), kTimesAskedByFive);
    std::thread([] { EXPECT_EQ(timesAskedByFive(), kTimesAskedByFive); }).join();
}

TEST(ProcessId, IsAskedForOnceInEachChild) {
    const auto asksOnce = [] {
        const int before = timesAsked;
        return passesInChild([before] {
            return timesAskedByFive() == kTimesAskedByFive && timesAsked == before + 1 + kTimesAskedByFive;
        });
    };
    EXPECT_TRUE(asksOnce());
    EXPECT_TRUE(passesInChild(asksOnce));
    EXPECT_EQ(timesAskedByFive(), kTimesAskedByFive);
}

TEST(ProcessId, IsAskedForOnceInAClone) {
    const int timesAskedByFirstFive = kernelWipesPages() ? 1 : 5;
    const auto asksOnce = [timesAskedByFirstFive] {
        return timesAskedByFive() == timesAskedByFirstFive && timesAskedByFive() == kTimesAskedByFive;
    };
    EXPECT_EQ(endOfChild(startClone(asksOnce)), kChildPassed);
}

TEST(ProcessId, StaysRightWhenAChildOfVforkWantsIt) {
    expectRightAfterVfork();
    EXPECT_TRUE(passesInChild([] {
        expectRightAfterVfork();
        return !testing::Test::HasFailure();
    }));
}

TEST(ProcessId, IsRightInChildrenAndTheirChildren) {
    expectRightInChildren();
}

TEST(ProcessId, IsRightInThreads) {
    expectRightInThreads();
}
