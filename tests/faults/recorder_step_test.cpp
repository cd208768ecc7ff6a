// A process that logs into a ring is stopped behind every single instruction: what it had finished is whole each time.
#include "child_process.hpp"
#include "ring_fixture.hpp"

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>

using sorrelctl::Ring;

namespace {

constexpr std::size_t kFileSize = 64 * 1024;
constexpr std::uint64_t kBefore = 1000; // messages that are logged at once: several laps
constexpr unsigned int kStepPatienceSeconds = 200;

class RecorderSteps : public RingFixture {
protected:
    // Logs, and stops before and behind the messages that are of interest.
    bool logTraced(std::uint64_t count) {
        alarm(kStepPatienceSeconds);
        const Container container = openSmall("ring");
        for (std::uint64_t i = 1; i <= kBefore; ++i) {
            log(*container, numbered(i));
        }
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == -1) {
            return false;
        }
        raise(SIGSTOP);
        for (std::uint64_t i = kBefore + 1; i <= kBefore + count; ++i) {
            log(*container, numbered(i));
        }
        raise(SIGSTOP);
        return true;
    }

    const char* mapRing() {
        const int fd = ::open(path("ring").c_str(), O_RDONLY | O_CLOEXEC);
        void* const memory = mmap(nullptr, kFileSize, PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        return memory == MAP_FAILED ? nullptr : static_cast<const char*>(memory);
    }

    static bool isStopped(pid_t child, int signal) {
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == signal;
    }

    // One more instruction. False at the second stop.
    static bool step(pid_t child) {
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) == -1) {
            return false;
        }
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP;
    }
};

} // namespace

TEST_F(RecorderSteps, AProcessMayEndAtAnyInstruction) {
    constexpr std::uint64_t kTraced = 3;
    const pid_t child = startChild([this] { return logTraced(kTraced); });
    ASSERT_TRUE(isStopped(child, SIGSTOP));
    const char* const file = mapRing();
    ASSERT_NE(file, nullptr);
    std::vector<char> seen;
    std::uint64_t newest = kBefore;
    int changes = 0;
    int torn = 0;
    while (step(child) && !HasFailure()) {
        if (seen.size() == kFileSize && std::memcmp(seen.data(), file, kFileSize) == 0) {
            continue;
        }
        seen.assign(file, file + kFileSize);
        ++changes;
        const Ring ring = sorrelctl::readRing(seen);
        ASSERT_FALSE(ring.records.empty());
        const std::uint64_t last = ring.records.back().sequence;
        EXPECT_TRUE(last == newest || last == newest + 1) << last << " behind " << newest;
        EXPECT_TRUE(areNumbered(ring));
        EXPECT_GT(bytesOf(ring), kFileSize * 8 / 10);
        EXPECT_TRUE(ring.damages.empty());
        EXPECT_TRUE(lossesOf(ring).empty()) << lossesOf(ring).front();
        newest = last;
        torn += ring.isTorn ? 1 : 0;
    }
    EXPECT_EQ(newest, kBefore + kTraced);
    EXPECT_GT(torn, 10 * static_cast<int>(kTraced));
    std::printf("%d states of the file, %d of them within a message\n", changes, torn);
    ptrace(PTRACE_CONT, child, nullptr, nullptr);
    EXPECT_EQ(endOfChild(child), kChildPassed);
}
