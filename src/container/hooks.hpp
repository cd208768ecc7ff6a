// What the container tells those above it, which it does not know. Shared with src/core.
#ifndef SORREL_CONTAINER_HOOKS_HPP
#define SORREL_CONTAINER_HOOKS_HPP

#include <atomic>

namespace sorrel {

// Called, unless null, after each library that was opened or closed, on the thread that did it.
inline std::atomic<void (*)()> librariesChangedHook{nullptr};

inline void callHook(const std::atomic<void (*)()>& hook) {
    if (auto* const function = hook.load()) {
        function();
    }
}

// Called, unless null, at the start of each worker, before it takes a lock.
inline std::atomic<void (*)()> workerStartedHook{nullptr};

} // namespace sorrel

#endif // SORREL_CONTAINER_HOOKS_HPP
