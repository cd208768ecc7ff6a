// The making of the container's mutex, and its failures, for which fakes of libc stand in.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <dlfcn.h>

using testing::IsEmpty;

namespace {

enum class Step { kNone, kAttributeInit, kSetType, kMutexInit };

Step failingStep = Step::kNone;
int mutexInits = 0;
int mutexDestroys = 0;
int attributeDestroys = 0;
int typeSet = -1;

// The function of that name behind the fake.
template <class Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

class ContainerMutex : public ContainerFixture {
protected:
    // A container whose mutex could not be made is built in silence, and locks all the same, recursively.
    void expectWorksInSilence(Step step) {
        failingStep = step;
        OpenContainer container(directory(), false);
        failingStep = Step::kNone;
        EXPECT_EQ(attributeDestroys, 0) << "it is destroyed only when everything went well";
        container->lock();
        container->lock();
        EXPECT_FALSE(isLockFree(*container));
        container->unlock();
        container->unlock();
        EXPECT_TRUE(isLockFree(*container));
        EXPECT_THAT(diagnostics().texts(), IsEmpty());
    }
};

} // namespace

extern "C" int fakeAttributeInit(pthread_mutexattr_t* attribute) __asm__("pthread_mutexattr_init");
extern "C" int fakeAttributeInit(pthread_mutexattr_t* attribute) {
    static auto* const real = realFunction<int(pthread_mutexattr_t*)>("pthread_mutexattr_init");
    return failingStep == Step::kAttributeInit ? ENOMEM : real(attribute);
}

extern "C" int fakeSetType(pthread_mutexattr_t* attribute, int type) __asm__("pthread_mutexattr_settype");
extern "C" int fakeSetType(pthread_mutexattr_t* attribute, int type) {
    static auto* const real = realFunction<int(pthread_mutexattr_t*, int)>("pthread_mutexattr_settype");
    typeSet = type;
    return failingStep == Step::kSetType ? EINVAL : real(attribute, type);
}

extern "C" int fakeAttributeDestroy(pthread_mutexattr_t* attribute) __asm__("pthread_mutexattr_destroy");
extern "C" int fakeAttributeDestroy(pthread_mutexattr_t* attribute) {
    static auto* const real = realFunction<int(pthread_mutexattr_t*)>("pthread_mutexattr_destroy");
    ++attributeDestroys;
    return real(attribute);
}

extern "C" int fakeMutexInit(pthread_mutex_t* mutex,
                             const pthread_mutexattr_t* attribute) __asm__("pthread_mutex_init");
extern "C" int fakeMutexInit(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
    static auto* const real = realFunction<int(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init");
    ++mutexInits;
    return failingStep == Step::kMutexInit ? ENOMEM : real(mutex, attribute);
}

extern "C" int fakeMutexDestroy(pthread_mutex_t* mutex) __asm__("pthread_mutex_destroy");
extern "C" int fakeMutexDestroy(pthread_mutex_t* mutex) {
    static auto* const real = realFunction<int(pthread_mutex_t*)>("pthread_mutex_destroy");
    ++mutexDestroys;
    return real(mutex);
}

TEST_F(ContainerMutex, AContainerMakesOneRecursiveMutexAndDestroysIt) {
    mutexInits = 0;
    attributeDestroys = 0;
    {
        const OpenContainer container(directory(), false);
        EXPECT_EQ(mutexInits, 1);
        EXPECT_EQ(typeSet, PTHREAD_MUTEX_RECURSIVE);
        EXPECT_EQ(attributeDestroys, 1);
        mutexDestroys = 0;
    }
    EXPECT_EQ(mutexDestroys, 1);
}

TEST_F(ContainerMutex, KeepsSilentWhenItsAttributeCannotBeMade) {
    expectWorksInSilence(Step::kAttributeInit);
}

TEST_F(ContainerMutex, KeepsSilentWhenItCannotBeMadeRecursive) {
    expectWorksInSilence(Step::kSetType);
}

TEST_F(ContainerMutex, KeepsSilentWhenItCannotBeMade) {
    expectWorksInSilence(Step::kMutexInit);
}
