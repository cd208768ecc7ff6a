// The road of a message inside the logger, seen from libc: what is formatted, and when clock and process id are read.
#include "fast_path.hpp"
#include "private_system.hpp"
#include "temp_dir.hpp"

#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <dlfcn.h>
#include <functional>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Formatting {
    const char* buffer;
    std::size_t size;
    const char* format;
    std::string formatText;
};

// What this program's threads do while they are observed.
struct Observations {
    std::vector<std::string> calls;
    std::vector<Formatting> formattings;
};

constexpr char kNotPlain[] = "%5d"; // goes to vsnprintf on every path

Observations* observed = nullptr;

void observe(const char* call) {
    if (observed != nullptr) {
        observed->calls.emplace_back(call);
    }
}

int formatObserved(char* buffer, std::size_t size, const char* format, va_list args) {
    using Function = int (*)(char*, std::size_t, const char*, va_list);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "vsnprintf"));
    if (observed != nullptr) {
        observe("vsnprintf");
        observed->formattings.push_back({buffer, size, format, format});
    }
    return real(buffer, size, format, args);
}

} // namespace

extern "C" int fakeVsnprintf(char* buffer, std::size_t size, const char* format, va_list args) __asm__("vsnprintf");
extern "C" int fakeVsnprintf(char* buffer, std::size_t size, const char* format, va_list args) {
    return formatObserved(buffer, size, format, args);
}

// The name in a hardened build.
extern "C" int fakeVsnprintfChk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                                va_list args) __asm__("__vsnprintf_chk");
extern "C" int fakeVsnprintfChk(char* buffer, std::size_t size, int, std::size_t, const char* format, va_list args) {
    return formatObserved(buffer, size, format, args);
}

// Has the name that the library calls: another one where the time is of 32 bits unless somebody asks for 64.
int gettimeofday(timeval* now, void* zone) noexcept {
    observe(zone == nullptr ? "gettimeofday" : "gettimeofday with a zone");
    *now = {};
    return 0;
}

extern "C" pid_t fakeGetpid() __asm__("getpid");
extern "C" pid_t fakeGetpid() {
    observe("getpid");
    return static_cast<pid_t>(syscall(SYS_getpid));
}

namespace {

__attribute__((format(printf, 4, 5))) void logOn(CSorrel& logger, sorrel_component* component, sorrel_level* level,
                                                 const char* format, ...) {
    va_list args;
    va_start(args, format);
    logger.log(component, level, format, args);
    va_end(args);
}

__attribute__((format(printf, 4, 5))) void sorSyslogOn(CSorrel& logger, sorrel_component* component,
                                                       sorrel_level* level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logger.sorSyslog(component, level, format, args);
    va_end(args);
}

// The configured logger stands, on an empty configuration, before anything is observed.
class Emission : public testing::Test {
protected:
    Emission() {
        enterPrivateSystem();
        m_directory.write("sorrel.cfg", "");
        setenv("SORL_PATH", m_directory.path().c_str(), 1);
        CSorrel::getInstance();
    }

    template <class Operation>
    Observations observing(Operation operation) {
        Observations observations;
        observed = &observations;
        operation();
        observed = nullptr;
        return observations;
    }

    // Every way in which a message may not pass.
    void logWhatDoesNotPass(const std::function<void(sorrel_component*, sorrel_level*)>& log) {
        log(&m_component, SR_WARN);
        log(nullptr, SR_ERR);
        log(&m_component, nullptr);
        log(nullptr, nullptr);
        log(&m_everything, m_noBits);
        log(&m_nothing, SR_ALL);
    }

    CSorrel m_plain{false};
    sorrel_component m_component{"net", 0x8, {}};
    sorrel_component m_everything{"all", 0xffffffffU, {}};
    sorrel_component m_nothing{"none", 0, {}};
    sorrel_level* m_noBits = sorrel::sorrel_level_create(3, 0);

private:
    TempDir m_directory;
};

} // namespace

TEST_F(Emission, AMessageThatDoesNotPassIsNotFormattedAndReadsNeitherClockNorProcessId) {
    const Observations observations = observing([&] {
        logWhatDoesNotPass(
            [&](sorrel_component* component, sorrel_level* level) { logOn(m_plain, component, level, "text"); });
    });
    EXPECT_THAT(observations.calls, IsEmpty());
}

TEST_F(Emission, TheEntryFunctionPassesNothingOnThatDoesNotPass) {
    const Observations observations = observing([&] {
        logWhatDoesNotPass(
            [&](sorrel_component* component, sorrel_level* level) { _sorrel(component, level, "text"); });
    });
    EXPECT_THAT(observations.calls, IsEmpty());
}

TEST_F(Emission, AMessageThatPassesIsFormattedThenTheClockIsReadThenTheProcessId) {
    const Observations observations = observing([&] { logOn(m_plain, &m_component, SR_ERR, kNotPlain, 5); });
    if (kFastPath) {
        EXPECT_THAT(observations.calls, ElementsAre("vsnprintf", "gettimeofday"));
    } else {
        EXPECT_THAT(observations.calls, ElementsAre("vsnprintf", "gettimeofday", "getpid"));
    }
    EXPECT_EQ(observations.formattings[0].formatText, kNotPlain);
}

TEST_F(Emission, OnTheFastPathAMessageOfAPlainFormatOnlyReadsTheClock) {
    const Observations observations = observing([&] { logOn(m_plain, &m_component, SR_ERR, "%d", 5); });
    if (kFastPath) {
        EXPECT_THAT(observations.calls, ElementsAre("gettimeofday"));
    } else {
        EXPECT_THAT(observations.calls, ElementsAre("vsnprintf", "gettimeofday", "getpid"));
    }
}

TEST_F(Emission, AMessageIsFormattedIntoABufferOf2048Bytes) {
    const Observations observations = observing([&] { logOn(m_plain, &m_component, SR_ERR, kNotPlain, 5); });
    ASSERT_EQ(observations.formattings.size(), 1U);
    EXPECT_EQ(observations.formattings[0].size, 2048U);
}

TEST_F(Emission, ALevelOfSeveralBitsPassesWithOneOfThem) {
    const Observations observations = observing([&] {
        logOn(m_plain, &m_component, sorrel::sorrel_bitwise_or_collection({SR_ERR, SR_DEBUG}), kNotPlain, 5);
    });
    EXPECT_EQ(observations.formattings.size(), 1U);
}

TEST_F(Emission, SorSyslogFormatsEvenWhatDoesNotPass) {
    const Observations observations = observing([&] {
        logWhatDoesNotPass(
            [&](sorrel_component* component, sorrel_level* level) { sorSyslogOn(m_plain, component, level, "text"); });
    });
    EXPECT_EQ(observations.formattings.size(), 6U);
    for (const Formatting& formatting : observations.formattings) {
        EXPECT_EQ(formatting.formatText, "text");
        EXPECT_EQ(formatting.size, 2048U);
    }
}

TEST_F(Emission, KeepsTheTextOfSorSyslogAsTheFormatOfASecondFormatting) {
    const Observations observations =
        observing([&] { sorSyslogOn(m_plain, &m_component, SR_ERR, "%s%%%%%%m", "text"); });
    ASSERT_EQ(observations.formattings.size(), 2U);
    EXPECT_EQ(observations.formattings[0].formatText, "%s%%%%%%m");
    EXPECT_EQ(observations.formattings[1].formatText, "text%%%m");
}

TEST_F(Emission, KeepsOneBufferOfSorSyslogForTheWholeProcess) {
    CSorrel other(false);
    const Observations observations = observing([&] {
        sorSyslogOn(m_plain, &m_component, SR_WARN, "one");
        std::thread([&] { sorSyslogOn(other, &m_component, SR_WARN, "two"); }).join();
    });
    ASSERT_EQ(observations.formattings.size(), 2U);
    EXPECT_EQ(observations.formattings[0].buffer, observations.formattings[1].buffer);
}
