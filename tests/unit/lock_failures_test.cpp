// Mutexes that cannot be locked: fakes of libc stand in for a failure that a sound mutex does not have.
#include <sorrel/level.h>
#include <sorrel/logger.hpp>

#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <gmock/gmock.h>
#include <system_error>
#include <thread>

using testing::IsEmpty;

namespace {

using MutexFunction = int (*)(pthread_mutex_t*);

// Which calls of this thread fail: the one after so many others; -1: none.
thread_local int locksUntilFailure = -1;
thread_local int tryLocksUntilFailure = -1;

thread_local bool unlockingReportsAnError = false;

bool failsNow(int& callsUntilFailure) {
    const bool fails = callsUntilFailure == 0;
    if (callsUntilFailure >= 0) {
        --callsUntilFailure;
    }
    return fails;
}

// The sanitizer's function, where there is one, else that of libc.
MutexFunction realFunction(MutexFunction interceptor, const char* name) {
    return interceptor != nullptr ? interceptor : reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
}

} // namespace

// Where a sanitizer is linked into the program, it has to see the calls.
extern "C" __attribute__((weak)) int __interceptor_pthread_mutex_lock(pthread_mutex_t*);
extern "C" __attribute__((weak)) int __interceptor_pthread_mutex_trylock(pthread_mutex_t*);
extern "C" __attribute__((weak)) int __interceptor_pthread_mutex_unlock(pthread_mutex_t*);

extern "C" int fakeMutexLock(pthread_mutex_t* mutex) __asm__("pthread_mutex_lock");
extern "C" int fakeMutexLock(pthread_mutex_t* mutex) {
    static const MutexFunction real = realFunction(__interceptor_pthread_mutex_lock, "pthread_mutex_lock");
    return failsNow(locksUntilFailure) ? EDEADLK : real(mutex);
}

extern "C" int fakeMutexTryLock(pthread_mutex_t* mutex) __asm__("pthread_mutex_trylock");
extern "C" int fakeMutexTryLock(pthread_mutex_t* mutex) {
    static const MutexFunction real = realFunction(__interceptor_pthread_mutex_trylock, "pthread_mutex_trylock");
    return failsNow(tryLocksUntilFailure) ? EAGAIN : real(mutex);
}

extern "C" int fakeMutexUnlock(pthread_mutex_t* mutex) __asm__("pthread_mutex_unlock");
extern "C" int fakeMutexUnlock(pthread_mutex_t* mutex) {
    static const MutexFunction real = realFunction(__interceptor_pthread_mutex_unlock, "pthread_mutex_unlock");
    const int rc = real(mutex);
    return unlockingReportsAnError ? EPERM : rc;
}

namespace {

// The error number of the std::system_error that an operation throws; 0 when it throws none.
int errorOf(const std::function<void()>& operation) {
    int error = 0;
    try {
        operation();
    } catch (const std::system_error& thrown) {
        error = thrown.code().value();
    }
    locksUntilFailure = -1;
    tryLocksUntilFailure = -1;
    return error;
}

class LockFailures : public testing::Test {
protected:
    void expectNothingCreatedAndUnlocked() {
        std::vector<std::string> names;
        logger.getComponentNames(names);
        EXPECT_THAT(names, IsEmpty());
        std::thread([this] { logger.createComponent("other", nullptr, ""); }).join();
        EXPECT_NE(logger.getComponentByName("other"), nullptr);
    }

    CSorrel logger{false};
};

} // namespace

TEST(LevelStore, AFailureToLockItIsThrownWithItsErrorNumberAndNothingIsCreated) {
    sorrel_level* level = nullptr;
    locksUntilFailure = 0;
    EXPECT_EQ(errorOf([&level] { level = sorrel_level_create(3); }), EDEADLK);
    EXPECT_EQ(level, nullptr);
    EXPECT_EQ(sorrel_level_create(3)->mask, 0x8U);
}

TEST_F(LockFailures, AFailureToLockTheComponentsIsThrownWithItsErrorNumber) {
    locksUntilFailure = 0;
    EXPECT_EQ(errorOf([this] { logger.lockComponents(); }), EDEADLK);
    expectNothingCreatedAndUnlocked();
}

TEST_F(LockFailures, OperationsOfTheRegistryPassItOn) {
    std::vector<std::string> names;
    std::vector<std::pair<unsigned int, std::string>> descriptions;
    const std::vector<std::function<void()>> operations = {
        [&] { logger.createComponent("net", SR_ERR, ""); }, [&] { logger.updateComponentLevel("net", "1"); },
        [&] { logger.setComponentLevel("net", 1); }, [&] { logger.getComponentNames(names); },
        [&] { logger.getLevelDescriptions("net", descriptions); }};
    for (const auto& operation : operations) {
        locksUntilFailure = 0;
        EXPECT_EQ(errorOf(operation), EDEADLK);
    }
    expectNothingCreatedAndUnlocked();
}

TEST_F(LockFailures, ACreationThatGotOnlyTheMutexOfTheContainerGivesItBack) {
    tryLocksUntilFailure = 0;
    EXPECT_EQ(errorOf([this] { logger.createComponent("net", SR_ERR, ""); }), EAGAIN);
    expectNothingCreatedAndUnlocked();
}

TEST_F(LockFailures, TheResultOfUnlockingIsIgnored) {
    logger.lockComponents();
    unlockingReportsAnError = true;
    EXPECT_EQ(errorOf([this] { logger.unlockComponents(); }), 0);
    unlockingReportsAnError = false;
    expectNothingCreatedAndUnlocked();
}
