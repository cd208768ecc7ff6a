// The end of a process waits for other threads, for a time that does not pass here: the clock stands still.
#include "exit_fixture.hpp"

#include <atomic>
#include <ctime>
#include <dlfcn.h>
#include <gmock/gmock.h>

using testing::Eq;
using testing::ExitedWithCode;

namespace {

std::atomic<bool> clockStands{false};
std::atomic<bool> isReady{false};

// How often the main thread has looked at the clock since then.
const std::thread::id kMainThread = std::this_thread::get_id();
std::atomic<int> looks{0};

bool exitWaits() {
    return looks > 5;
}

class ExitPatience : public ExitFixture {
protected:
    [[noreturn]] static void exitWithoutTime() {
        waitUntil([] { return isReady.load(); });
        clockStands = true;
        std::exit(EXIT_SUCCESS);
    }
};

} // namespace

extern "C" int fakeClock(clockid_t clock, timespec* time) __asm__("clock_gettime");
extern "C" int fakeClock(clockid_t clock, timespec* time) {
    static auto* const real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (clockStands) {
        looks += std::this_thread::get_id() == kMainThread ? 1 : 0;
        *time = {};
        return 0;
    }
    return real(clock, time);
}

TEST_F(ExitPatience, IsForAThreadThatComesOutOfATarget) {
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("log", [](const PluginEvent&) {
                isReady = true;
                waitUntil(exitWaits);
            });
            std::thread([] { say("the last one"); }).detach();
            exitWithoutTime();
        },
        ExitedWithCode(0), Eq(std::string("recording log the last one\n") + kReleased));
}

TEST_F(ExitPatience, IsForAWorkerThatWaitsForTheComponentsLock) {
    EXPECT_EXIT(
        {
            start();
            CSorrel::getInstance()->lockComponents();
            CSorrel::getInstance()->lockComponents();
            blockWorker();
            clockStands = true;
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq(kReleased));
}
