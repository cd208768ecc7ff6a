// How many mutexes the exported classes initialise: one each, so that the size and the number of their locks is known.
#include <sorrel/logger.hpp>

#include <atomic>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

namespace {

std::atomic<int> initialised{0};
std::atomic<int> destroyed{0};

template <class Function>
Function* nextFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
    ++initialised;
    return nextFunction<int(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init")(mutex, attribute);
}

extern "C" int pthread_mutex_destroy(pthread_mutex_t* mutex) {
    ++destroyed;
    return nextFunction<int(pthread_mutex_t*)>("pthread_mutex_destroy")(mutex);
}

namespace {

TEST(MutexCount, AContainerInitialisesOneMutex) {
    const int before = initialised;
    {
        const sorrel::CLogTargetContainer container("/nowhere", false, nullptr);
        EXPECT_EQ(initialised - before, 1);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(MutexCount, ALoggerInitialisesItsOwnAndThatOfItsContainer) {
    const int before = initialised;
    {
        const CSorrel logger(false);
        EXPECT_EQ(initialised - before, 2);
    }
    EXPECT_EQ(destroyed, 2);
}

} // namespace
