// The id of the calling thread, as the kernel numbers it. Messages do not hold it.
#ifndef SORREL_TARGETS_THREAD_ID_HPP
#define SORREL_TARGETS_THREAD_ID_HPP

#include <unistd.h>

namespace {

// Asked for once a thread, for it costs a system call; and again in a forked child, which inherits what its parent
// knew. What is kept has no destructor: one would keep the library mapped as long as the thread lives.
inline int threadIdIn(int processId) {
    thread_local int keptFor = 0;
    thread_local int kept = 0;
    if (keptFor != processId) {
        keptFor = processId;
        kept = gettid();
    }
    return kept;
}

} // namespace

#endif // SORREL_TARGETS_THREAD_ID_HPP
