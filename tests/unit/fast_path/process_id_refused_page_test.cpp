// The process id where there is no memory for the page that keeps it.
#include "process_id_checks.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/mman.h>

namespace {

int refusals = 0;

} // namespace

// Has the name that the library calls: another one where offsets are of 32 bits unless somebody asks for 64.
void* mmap(void*, std::size_t, int, int, int, off_t) noexcept {
    ++refusals;
    errno = ENOMEM;
    return MAP_FAILED;
}

TEST(ProcessIdRefusedPage, IsAskedForEveryTime) {
    EXPECT_GT(refusals, 0);
    EXPECT_EQ(timesAskedByFive(), 5);
}

TEST(ProcessIdRefusedPage, IsRightInChildrenAndTheirChildren) {
    expectRightInChildren();
}

TEST(ProcessIdRefusedPage, IsRightInThreads) {
    expectRightInThreads();
}
