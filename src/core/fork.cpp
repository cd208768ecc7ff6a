// fork(2) in a process that logs: the child gets locks that it can take, whatever other threads did at that moment, and
// lets go of the parent's worker.
#include "core/default_locale.hpp"
#include "core/leaf_lock.hpp"
#include "core/logger_slot.hpp"
#include "core/process_id.hpp"

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

// The locks that a forking thread has taken so far.
struct Locks {
    std::array<pthread_mutex_t*, kMaxLocks> held;
    std::size_t count;
};

Locks locksOfFork; // guarded by the slots' mutexes, which are among them

LoggerSlot* const kSlots[] = {&configuredSlot, &plainSlot};

void release(const Locks& locks) {
    for (std::size_t i = locks.count; i > 0; --i) {
        pthread_mutex_unlock(locks.held[i - 1]);
    }
}

// Waits for the first lock. It is tried before, for the checkers of lock orders: the forking thread may hold a
// container's mutex, inside a target.
Locks waitFor(pthread_mutex_t* first) {
    if (pthread_mutex_trylock(first) != 0) {
        pthread_mutex_lock(first);
    }
    return {{first}, 1};
}

bool tryOne(Locks& locks, pthread_mutex_t* mutex, pthread_mutex_t*& busy) {
    if (mutex == locks.held[0]) {
        return true;
    }
    if (pthread_mutex_trylock(mutex) != 0) {
        busy = mutex;
        return false;
    }
    locks.held[locks.count++] = mutex;
    return true;
}

// Takes all the others that are free; the first that is not is `busy`.
bool tryAll(Locks& locks, pthread_mutex_t*& busy) {
    for (LoggerSlot* const slot : kSlots) {
        if (!tryOne(locks, slot->mutex().native_handle(), busy)) {
            return false;
        }
    }
    for (LoggerSlot* const slot : kSlots) {
        CSorrel* const logger = slot->loggerWithLocks();
        if (logger != nullptr && (!tryOne(locks, ForkAccess::containerMutex(*logger).native_handle(), busy) ||
                                  !tryOne(locks, ForkAccess::componentsLock(*logger).native_handle(), busy))) {
            return false;
        }
    }
    return tryOne(locks, sorrel::leafLock.native_handle(), busy);
}

// Other threads take these locks in different orders, so none is waited for while another is held; the one that was
// waited for is kept, since in a storm of messages it is hardly ever free.
void beforeFork() {
    pthread_mutex_t* next = kSlots[0]->mutex().native_handle();
    Locks locks = waitFor(next);
    while (!tryAll(locks, next)) {
        release(locks);
        locks = waitFor(next);
    }
    locksOfFork = locks;
    sorrel::keepLocaleForChild();
}

// The copy is this thread's own: once the last of them is given back, another thread may fork.
void afterForkInParent() {
    const Locks locks = locksOfFork;
    release(locks);
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
    sorrel::leafLock.unlock(); // not recursive, so it does not know its owner
    sorrel::takeParentsLocale();
#ifdef SORREL_FAST_PATH
    sorrel::keptProcessId(); // asked for now, and not first by a child of vfork, which would leave its own
#endif
}

} // namespace

// Also without a logger: names and levels take the leaf lock before there is one.
__attribute__((constructor)) void prepareForForks() {
    static std::atomic<bool> registered{false};
    if (!registered.exchange(true)) {
        sorrel::keepLocaleForChild(); // what is kept in is made now, and not first at a fork
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    }
}
