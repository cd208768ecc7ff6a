// What a message costs besides time: allocations, and calls into the C library, which this program counts.
#include "fast_path.hpp"
#include "private_system.hpp"
#include "raw_target.hpp"

#include <sorrel/level.h>
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const int errnoWhenLoaded = errno; // the libraries have been initialised

struct Costs {
    int allocations;
    int formattings;
    int clockReads;
    int processQueries;
    int locks;
};

thread_local Costs costs{}; // of each thread alone: what the watcher does is not counted

template <class Function>
Function* nextFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
int __vsnprintf_chk(char* text, std::size_t size, int flag, std::size_t limit, const char* format, va_list args)
    __attribute__((format(printf, 5, 0)));

void* malloc(std::size_t size) {
    ++costs.allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++costs.allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    ++costs.allocations;
    return __libc_realloc(memory, size);
}

int vsnprintf(char* text, std::size_t size, const char* format, va_list args) {
    static auto* const next = nextFunction<int(char*, std::size_t, const char*, va_list)>("vsnprintf");
    ++costs.formattings;
    return next(text, size, format, args);
}

// What vsnprintf is called in a library that is built with _FORTIFY_SOURCE.
int __vsnprintf_chk(char* text, std::size_t size, int, std::size_t, const char* format, va_list args) {
    return vsnprintf(text, size, format, args);
}

int gettimeofday(timeval* now, void* zone) noexcept {
    static auto* const next = nextFunction<int(timeval*, void*)>("gettimeofday");
    ++costs.clockReads;
    return next(now, zone);
}

pid_t getpid() noexcept {
    static auto* const next = nextFunction<pid_t()>("getpid");
    ++costs.processQueries;
    return next();
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const next = nextFunction<int(pthread_mutex_t*)>("pthread_mutex_lock");
    ++costs.locks;
    return next(mutex);
}

} // extern "C"

namespace {

TEST(Load, LeavesErrnoAlone) {
    EXPECT_EQ(errnoWhenLoaded, 0);
}

// What an action costs when everything that is built once has been built.
template <class Action>
Costs costsOf(Action action) {
    action();
    costs = Costs{};
    action();
    return costs;
}

// With one target that is loaded like any other and does nothing, and one that answers.
class MessagePath : public RawTargetFixture {
protected:
    MessagePath() {
        enterPrivateSystem(); // naming a thread writes to /etc/tanglelog.cfg
        directory().write("sorrel.cfg", std::string(kTargetLine) + "\n");
        directory().write("sorrel-answering.cfg", "target=" SORREL_TEST_ANSWERING_TARGET "\n");
        setenv("SORL_PATH", directory().path().c_str(), 1);
        m_component = sorrel_create_component("net", SR_INFO, "");
    }

    sorrel_component* component() const { return m_component; }

private:
    sorrel_component* m_component;
};

TEST_F(MessagePath, TheContainerAllocatesNothingAndLocksOnce) {
    sorrel::CLogTargetContainer container(directory().path(), true, nullptr);
    const std::string longName(100, 'n');
    const std::string text(2047, 't');
    const Costs spent = costsOf([&] { container.log(1, 2, 3, 4, SR_INFO, longName, longName, longName, text); });
    EXPECT_EQ(spent.allocations, 0);
    EXPECT_EQ(spent.locks, 1);
}

TEST_F(MessagePath, AMessageThatPassesIsFormattedStampedAndLockedOnce) {
    const Costs spent = costsOf([&] { _sorrel(component(), SR_INFO, "value %5d", 7); });
    EXPECT_EQ(spent.formattings, 1);
    EXPECT_EQ(spent.clockReads, 1);
    EXPECT_EQ(spent.processQueries, kFastPath ? 0 : 1);
    EXPECT_EQ(spent.locks, 1);
}

TEST_F(MessagePath, OnTheFastPathAPlainFormatDoesNotGoToVsnprintf) {
    const Costs spent = costsOf([&] { _sorrel(component(), SR_INFO, "value %d %f %s", 7, 3.5, "text"); });
    EXPECT_EQ(spent.formattings, kFastPath ? 0 : 1);
    EXPECT_EQ(spent.clockReads, 1);
    EXPECT_EQ(spent.locks, 1);
}

TEST_F(MessagePath, AWarmMessageAllocatesNothing) {
    const std::string longName(100, 'n');
    const std::string longText(3000, 't');
    sorrel_init_nosorrel(longName.c_str());
    sorrel_enter_function(component(), longName.c_str());
    const Costs plain = costsOf([&] { _sorrel(component(), SR_INFO, "%s", "longer than the buffer of a string"); });
    EXPECT_EQ(plain.allocations, 0);
    const Costs cut = costsOf([&] { _sorrel(component(), SR_INFO, "%s", longText.c_str()); });
    EXPECT_EQ(cut.allocations, 0);
}

TEST_F(MessagePath, AWarmMessageThatATargetLogsMeanwhileAllocatesNothing) {
    sorrel_set_applicationname("answering");
    sorrel_create_component("answers", SR_INFO, "");
    const Costs spent = costsOf([&] { _sorrel(component(), SR_INFO, "%s", "longer than the buffer of a string"); });
    EXPECT_EQ(spent.clockReads, 2);
    EXPECT_EQ(spent.allocations, 0);
}

TEST_F(MessagePath, ADumpAllocatesNothing) {
    const std::string block(1000, 'd');
    const Costs spent = costsOf([&] { sorrel_dump(component(), SR_INFO, block.data(), 1000); });
    EXPECT_EQ(spent.clockReads, 63);
    EXPECT_EQ(spent.allocations, 0);
}

TEST_F(MessagePath, AFilteredMessageDoesNothingButTheTest) {
    const char* const neverLookedAt = reinterpret_cast<const char*>(1);
    const Costs spent = costsOf([&] { _sorrel(component(), SR_DEBUG, "%s", neverLookedAt); });
    EXPECT_EQ(spent.allocations, 0);
    EXPECT_EQ(spent.formattings, 0);
    EXPECT_EQ(spent.clockReads, 0);
    EXPECT_EQ(spent.processQueries, 0);
    EXPECT_EQ(spent.locks, 0);
}

} // namespace
