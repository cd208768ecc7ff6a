// The innermost lock of the library. Shared with src/config.
#ifndef SORREL_CORE_LEAF_LOCK_HPP
#define SORREL_CORE_LEAF_LOCK_HPP

#include <mutex>

namespace sorrel {

// Guards what changes so rarely that it shares one lock: the store of levels, the index of components, the names that
// were ever given to an application, and the bytes of the containers' own copies. No other lock of the library is taken
// while it is held. Initialised statically and never destroyed.
inline std::mutex leafLock;

} // namespace sorrel

#endif // SORREL_CORE_LEAF_LOCK_HPP
