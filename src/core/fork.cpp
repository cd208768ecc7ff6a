// fork(2) in a process that logs: the child gets locks that it can take, whatever other threads did at that moment, and
// lets go of the parent's worker.
#include "core/leaf_lock.hpp"
#include "core/logger_slot.hpp"

#include <array>
#include <atomic>
#include <new>
#include <pthread.h>

namespace sorrel {

// What is looked at in the two classes.
struct ForkAccess {
    static CRecursiveMutex& containerMutex(CSorrel& logger) { return logger.m_container.m_mutex; }
    static CRecursiveMutex& componentsLock(CSorrel& logger) { return logger.m_componentsLock; }
    static int containerDepth(const CSorrel& logger) { return logger.m_container.m_depth + logger.m_registryDepth; }
    static int componentsDepth(const CSorrel& logger) { return logger.m_componentsDepth; }
    static void forgetParent(CSorrel& logger) { logger.m_container.forgetParent(); }
};

} // namespace sorrel

namespace {

using sorrel::ForkAccess;

constexpr std::size_t kMaxLocks = 7;

// The locks that the forking thread holds while it forks; guarded by the slots' mutexes, which are the first two.
std::array<pthread_mutex_t*, kMaxLocks> heldLocks;
std::size_t heldCount = 0;

LoggerSlot* const kSlots[] = {&configuredSlot, &plainSlot};

void releaseAll() {
    while (heldCount > 0) {
        pthread_mutex_unlock(heldLocks[--heldCount]);
    }
}

// These are waited for also when the forking thread, inside a target, holds a container's mutex: no thread that builds
// a logger waits for that. They are tried first, for the checkers of lock orders.
void lockSlots() {
    for (LoggerSlot* const slot : kSlots) {
        pthread_mutex_t* const mutex = slot->mutex().native_handle();
        if (pthread_mutex_trylock(mutex) != 0) {
            pthread_mutex_lock(mutex);
        }
    }
}

void noteSlots() {
    heldCount = 0;
    for (LoggerSlot* const slot : kSlots) {
        heldLocks[heldCount++] = slot->mutex().native_handle();
    }
}

// Takes one more lock if it is free; otherwise lets go of all and waits for it, holding nothing.
bool takeOrWait(pthread_mutex_t* mutex) {
    if (pthread_mutex_trylock(mutex) == 0) {
        heldLocks[heldCount++] = mutex;
        return true;
    }
    releaseAll();
    pthread_mutex_lock(mutex);
    pthread_mutex_unlock(mutex);
    return false;
}

bool takeLoggersAndLeaf() {
    for (LoggerSlot* const slot : kSlots) {
        CSorrel* const logger = slot->loggerWithLocks();
        if (logger != nullptr && (!takeOrWait(ForkAccess::containerMutex(*logger).native_handle()) ||
                                  !takeOrWait(ForkAccess::componentsLock(*logger).native_handle()))) {
            return false;
        }
    }
    return takeOrWait(sorrel::leafLock.native_handle());
}

// Other threads take these locks in different orders, so none is waited for while another is held.
void beforeFork() {
    do {
        lockSlots();
        noteSlots();
    } while (!takeLoggersAndLeaf());
}

void afterForkInParent() {
    releaseAll();
}

// A mutex that was taken by the parent's thread cannot be given back by the child's. It is made anew, and taken as
// often as the forking thread held it before the fork.
template <typename Mutex>
void remake(Mutex& mutex, int depth) {
    new (&mutex) Mutex;
    for (int i = 0; i < depth; ++i) {
        pthread_mutex_lock(mutex.native_handle());
    }
}

void afterForkInChild() {
    for (LoggerSlot* const slot : kSlots) {
        if (CSorrel* const logger = slot->loggerWithLocks()) {
            remake(ForkAccess::containerMutex(*logger), ForkAccess::containerDepth(*logger));
            remake(ForkAccess::componentsLock(*logger), ForkAccess::componentsDepth(*logger));
            ForkAccess::forgetParent(*logger);
        }
        remake(slot->mutex(), slot->isBeingBuilt() ? 1 : 0);
    }
    remake(sorrel::leafLock, 0);
    heldCount = 0;
}

} // namespace

void prepareForForks() {
    static std::atomic<bool> registered{false};
    if (!registered.exchange(true)) {
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    }
}
