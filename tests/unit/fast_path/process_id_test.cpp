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

const int kTimesAskedByFirstFive = kernelWipesPages() ? 1 : 5;
const int kTimesAskedByNextFive = kernelWipesPages() ? 0 : 5;

} // namespace

TEST(ProcessId, IsAskedForOnce) {
    EXPECT_EQ(timesAskedByFive(), kTimesAskedByFirstFive);
    EXPECT_EQ(timesAskedByFive(), kTimesAskedByNextFive);
    std::thread([] { EXPECT_EQ(timesAskedByFive(), kTimesAskedByNextFive); }).join();
}

TEST(ProcessId, IsAskedForOnceInEachChild) {
    sorrel::keptProcessId();
    const auto asksOnce = [] {
        return timesAskedByFive() == kTimesAskedByFirstFive && timesAskedByFive() == kTimesAskedByNextFive;
    };
    EXPECT_TRUE(passesInChild([&] { return asksOnce() && passesInChild(asksOnce); }));
    EXPECT_EQ(timesAskedByFive(), kTimesAskedByNextFive);
}

TEST(ProcessId, IsRightInChildrenAndTheirChildren) {
    expectRightInChildren();
}

TEST(ProcessId, IsRightInThreads) {
    expectRightInThreads();
}
