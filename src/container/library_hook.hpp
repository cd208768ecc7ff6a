// What the loader of libraries tells. Shared with src/core.
#ifndef SORREL_CONTAINER_LIBRARY_HOOK_HPP
#define SORREL_CONTAINER_LIBRARY_HOOK_HPP

#include <atomic>

namespace sorrel {

// Called, unless null, after each library that was opened, on the opening thread.
inline std::atomic<void (*)()> libraryLoadedHook{nullptr};

} // namespace sorrel

#endif // SORREL_CONTAINER_LIBRARY_HOOK_HPP
