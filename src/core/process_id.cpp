// The process id is kept in a page that the kernel wipes in each child.
#include "core/process_id.hpp"

#include "core/message_path.hpp"

#include <cstddef>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Null where the kernel does not wipe pages. Holds the id from the beginning: a child of vfork, which shares the page,
// is not to be the first who asks. Programs begin with an errno of 0, whatever happens here.
int* newKeptId() {
    const sorrel::ErrnoKeeper keeper;
    const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    // Emulators say yes to any advice, and wipe nothing.
    constexpr int kNoSuchAdvice = -1;
    if (madvise(page, size, kNoSuchAdvice) == 0 || madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return nullptr;
    }
    int* const id = static_cast<int*>(page);
    *id = getpid();
    return id;
}

// Made when the library is loaded; before, and where it cannot be had, every message asks. Zero in a new child.
int* const keptId = newKeptId();

} // namespace

int sorrel::keptProcessId() {
    if (keptId == nullptr) {
        return getpid();
    }
    int id = __atomic_load_n(keptId, __ATOMIC_RELAXED);
    if (id == 0) {
        id = getpid();
        __atomic_store_n(keptId, id, __ATOMIC_RELAXED);
    }
    return id;
}
