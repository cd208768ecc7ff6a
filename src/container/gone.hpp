// Containers that are gone although threads may still come to them. Shared with src/core.
#ifndef SORREL_CONTAINER_GONE_HPP
#define SORREL_CONTAINER_GONE_HPP

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <pthread.h>
#include <thread>

namespace sorrel {

class CLogTargetContainer;

// The containers that are gone: those of the process's loggers whose end at exit has begun, and of their stand-in.
inline std::atomic<bool> someAreGone{false};
inline std::atomic<const CLogTargetContainer*> goneContainers[3] = {};

// Threads may mark at the same time, also the same container.
inline void markGone(const CLogTargetContainer& container) noexcept {
    for (std::atomic<const CLogTargetContainer*>& place : goneContainers) {
        const CLogTargetContainer* taker = nullptr;
        if (place.compare_exchange_strong(taker, &container) || taker == &container) {
            break;
        }
    }
    someAreGone.store(true);
}

inline bool isGone(const CLogTargetContainer& container) noexcept {
    if (!someAreGone.load()) {
        return false;
    }
    return std::any_of(std::begin(goneContainers), std::end(goneContainers),
                       [&container](const auto& place) { return place.load() == &container; });
}

// At exit, where nothing may be thrown: whether the mutex was free, or held by this thread, and is taken now.
template <typename Mutex>
bool takeAtExit(Mutex& mutex) {
    return pthread_mutex_trylock(mutex.native_handle()) == 0;
}

using Deadline = std::chrono::steady_clock::time_point;

// At exit: waits until other threads are done, but not beyond the deadline. Whether they are.
template <typename Condition>
bool waitAtExit(Deadline deadline, Condition areDone) {
    while (!areDone()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Locks, unless the container is gone. Whether it did.
template <typename Lockable>
bool lockUnlessGone(const CLogTargetContainer& container, Lockable& lockable) {
    if (isGone(container)) {
        return false;
    }
    lockable.lock();
    return true;
}

} // namespace sorrel

#endif // SORREL_CONTAINER_GONE_HPP
