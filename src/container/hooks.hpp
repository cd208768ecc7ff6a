// What the container tells those above it, which it does not know. Shared with src/core.
#ifndef SORREL_CONTAINER_HOOKS_HPP
#define SORREL_CONTAINER_HOOKS_HPP

#include <atomic>

namespace sorrel {

// Called, unless null, after each library that was opened, on the opening thread.
inline std::atomic<void (*)()> libraryLoadedHook{nullptr};

// Called, unless null, at the start of each worker, before it takes a lock.
inline std::atomic<void (*)()> workerStartedHook{nullptr};

} // namespace sorrel

#endif // SORREL_CONTAINER_HOOKS_HPP
