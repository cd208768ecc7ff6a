// How long the console target waits for its reader.
#include "console_stream_fixture.hpp"

#include <poll.h>

namespace {

int waits = 0;
int lastTimeout = 0;

} // namespace

// Counts how often somebody waits for a stream, rather than looks at it.
extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
    if (timeout != 0) {
        ++waits;
        lastTimeout = timeout;
    }
    const timespec time = {timeout / 1000, timeout % 1000 * 1000000L};
    return ppoll(descriptors, count, &time, nullptr);
}

namespace {

class ConsoleWait : public ConsoleStream {
protected:
    // More than a pipe takes.
    void fill() { sayNumbers(1, 5000); }

    const Pipe m_pipe;
    const Redirected m_redirected{STDERR_FILENO, m_pipe.input()};
};

} // namespace

TEST_F(ConsoleWait, AReaderIsWaitedForOnceUntilItReadsAgain) {
    loadTarget("wait=20");
    fill();
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(lastTimeout, 20);
    m_pipe.read();
    fill();
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(lastTimeout, 20);
}

TEST_F(ConsoleWait, TenMillisecondsAreTheDefault) {
    loadTarget();
    fill();
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(lastTimeout, 10);
}

TEST_F(ConsoleWait, WithoutPatienceNobodyWaits) {
    loadTarget("wait=0");
    fill();
    EXPECT_EQ(waits, 0);
    EXPECT_THAT(m_pipe.read(), testing::HasSubstr("number 1\n"));
    log({"after"});
    EXPECT_THAT(m_pipe.read(), testing::HasSubstr(" messages lost: "));
}
