// What the C library says when the logger asks it for a call at the end of the process: a fake stands in for it.
#include "exit_fixture.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <thread>

using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;

namespace {

using Handler = void (*)(void*);

enum class Answer { kReal, kOutOfMemory, kNoMore };

std::atomic<Answer> answer{Answer::kReal};

// Stops the next thread that registers a handler, once it has done so, until the handlers have been called.
std::atomic<bool> stopsNext{false};
std::atomic<bool> hasStopped{false};
std::atomic<bool> mayGo{false};

void stopHere() {
    hasStopped = true;
    waitUntil([] { return mayGo.load(); }, std::chrono::seconds(2 * kChildPatienceSeconds));
}

class ExitHandlers : public ExitFixture {
protected:
    ExitHandlers() {
        startFromTheBeginning();
        netComponent = new sorrel_component{"net", 0xffffffffU, {}}; // exists without a logger
    }

    // Has the C library give an answer other than its own while the scope lasts.
    class ScopedAnswer {
    public:
        explicit ScopedAnswer(Answer given) { answer = given; }
        ScopedAnswer(const ScopedAnswer&) = delete;
        ScopedAnswer& operator=(const ScopedAnswer&) = delete;
        ~ScopedAnswer() { answer = Answer::kReal; }
    };
};

} // namespace

// Where a sanitizer is linked into the program, it has to see the calls.
extern "C" __attribute__((weak)) int __interceptor___cxa_atexit(Handler, void*, void*);

extern "C" int fakeAtExit(Handler handler, void* argument, void* library) __asm__("__cxa_atexit");
extern "C" int fakeAtExit(Handler handler, void* argument, void* library) {
    switch (answer.load()) {
    case Answer::kOutOfMemory:
        errno = ENOMEM;
        return -1;
    case Answer::kNoMore:
        return -1;
    case Answer::kReal:
        break;
    }
    using Function = int (*)(Handler, void*, void*);
    auto* const real = __interceptor___cxa_atexit != nullptr
                           ? &__interceptor___cxa_atexit
                           : reinterpret_cast<Function>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    const int rc = real(handler, argument, library);
    if (stopsNext.exchange(false)) {
        stopHere();
    }
    return rc;
}

TEST_F(ExitHandlers, WithoutMemoryForThemTheLoggerIsNotBuiltYet) {
    {
        const ScopedAnswer scope(Answer::kOutOfMemory);
        EXPECT_THROW(CSorrel::getInstance(), std::bad_alloc);
        EXPECT_THROW(say("lost"), std::bad_alloc);
        EXPECT_THROW(CSorrel::getInstance_NoSorrel(), std::bad_alloc);
    }
    say("heard");
    EXPECT_EQ(textsOf("recording"), std::vector<std::string>{"heard"});
}

// As when the process is so near its end that they have all been called.
TEST_F(ExitHandlers, WhenNoMoreAreTakenEveryCallIsHarmless) {
    const ScopedAnswer scope(Answer::kNoMore);
    errno = ENOMEM; // left by somebody before
    say("late");
    EXPECT_EQ(errno, ENOMEM);
    useEverything();
    CSorrel& plain = *CSorrel::getInstance_NoSorrel();
    EXPECT_EQ(plain.createComponent("late", SR_INFO, ""), &CSorrel::ms_OOMFallbackComp);
    EXPECT_EQ(plain.getComponentByName("late"), nullptr);
    EXPECT_THAT(journal::lines(), IsEmpty());
    EXPECT_TRUE(hasNoWatch());
}

// The handlers are called between its registration and its start.
TEST_F(ExitHandlers, ALoggerThatIsAboutToBeBuiltIsNotBuiltAnyMore) {
    EXPECT_EXIT(
        {
            alarm(kChildPatienceSeconds);
            journal::echoTo(STDERR_FILENO);
            static std::atomic<bool> hasLogged{false};
            stopsNext = true;
            std::thread([] {
                say("first");
                hasLogged = true;
            }).detach();
            expectAtExit(waitUntil([] { return hasStopped.load(); }), "the thread has registered the handler");
            lastWords.speak = [] {
                useEverything();
                mayGo = true;
                expectAtExit(waitUntil([] { return hasLogged.load(); }), "the thread goes on");
                expectAtExit(hasNoWatch(), "nobody watches");
                useEverythingAndTell();
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq("all silent\n"));
}

// Of the real C library: the last thing that it does is to write what streams still hold, here into a pipe that is
// full.
TEST_F(ExitHandlers, AThreadMayLogForTheFirstTimeWhenAllHaveBeenCalled) {
    EXPECT_EXIT(
        {
            alarm(kChildPatienceSeconds);
            int ends[2];
            expectAtExit(pipe2(ends, O_CLOEXEC) == 0, "the pipe");
            std::FILE* const stream = fdopen(ends[1], "w");
            const std::string text(1U << 17U, 'x'); // more than the pipe holds
            const std::size_t size = 2 * text.size();
            expectAtExit(std::setvbuf(stream, new char[size], _IOFBF, size) == 0, "the buffer");
            std::fwrite(text.data(), 1, text.size(), stream);
            std::thread([end = ends[0]] {
                pollfd filled = {end, POLLIN, 0};
                expectAtExit(poll(&filled, 1, -1) == 1, "all have been called");
                say("late");
                expectNothingIsFound();
                expectNothingIsChanged();
                expectAccessorsWork();
                std::fputs("all silent\n", stderr);
                _exit(EXIT_SUCCESS);
            }).detach();
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq("all silent\n"));
}
