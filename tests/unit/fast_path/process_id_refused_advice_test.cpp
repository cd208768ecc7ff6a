// The process id where the kernel does not know how to wipe a page.
#include "process_id_checks.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/mman.h>

namespace {

void* advised = nullptr; // the last page that was to be wiped
bool isGivenBack = false;

} // namespace

int madvise(void* page, std::size_t, int) noexcept {
    advised = page;
    errno = EINVAL;
    return -1;
}

int munmap(void* page, std::size_t size) noexcept {
    isGivenBack = isGivenBack || (advised != nullptr && page == advised);
    return static_cast<int>(syscall(SYS_munmap, page, size));
}

TEST(ProcessIdRefusedAdvice, IsAskedForEveryTime) {
    EXPECT_NE(advised, nullptr);
    EXPECT_EQ(timesAskedByFive(), 5);
}

TEST(ProcessIdRefusedAdvice, GivesThePageBack) {
    EXPECT_TRUE(isGivenBack);
}

TEST(ProcessIdRefusedAdvice, IsRightInChildrenAndTheirChildren) {
    expectRightInChildren();
}

TEST(ProcessIdRefusedAdvice, IsRightInThreads) {
    expectRightInThreads();
}
