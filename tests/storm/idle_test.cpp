// A process that logs nothing and whose configuration stays as it is: the library does not wake up.
#include "logger_fixture.hpp"
#include "proc_self.hpp"
#include "wait_until.hpp"

#include <chrono>
#include <gmock/gmock.h>
#include <thread>

namespace {

constexpr std::chrono::seconds kIdleTime(10);

// What the kernel counts for a thread: nanoseconds on a processor, nanoseconds of waiting for one, and times on one.
std::string runsOf(int threadId) {
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/schedstat");
    std::string line;
    std::getline(file, line);
    return line;
}

class Idle : public LoggerFixture {
protected:
    // The thread that watches the configuration, once it waits.
    static int waitingWorker() {
        const std::set<int> before = threadIds();
        CSorrel::getInstance();
        int worker = 0;
        for (const int threadId : threadIds()) {
            worker = before.count(threadId) == 0 ? threadId : worker;
        }
        EXPECT_TRUE(waitUntil([&] { return waitsForEvents(worker); }));
        return worker;
    }
};

} // namespace

TEST_F(Idle, TenSecondsWithoutMessagesTakeNoWakeUpAndNoTime) {
    configure(target("recording"));
    const int worker = waitingWorker();
    const std::string runs = runsOf(worker);
    ASSERT_NE(runs, "");
    std::this_thread::sleep_for(kIdleTime); // not waiting for anything: this is what is looked at
    EXPECT_EQ(runsOf(worker), runs);
}
