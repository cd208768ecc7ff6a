// Replaces operator new in the program whose one source includes this: allocations of the program and of the libraries
// that it loads are counted, and can be made to fail.
//
// Clang links the operator new of its sanitizers into each program, beside which there is no room for another. Tests
// then have to be skipped: see kActive.
#ifndef SORREL_TESTS_REPLACED_NEW_HPP
#define SORREL_TESTS_REPLACED_NEW_HPP

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

namespace replacedNew {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define SORREL_TESTS_NEW_IS_TAKEN
#endif
#endif

#ifdef SORREL_TESTS_NEW_IS_TAKEN
constexpr bool kActive = false;
#else
constexpr bool kActive = true;
#endif

inline std::atomic<long> count{0};

// The next allocation of this thread fails, and only that one: the throwing form throws, the other returns null with
// errno set to ENOMEM.
inline thread_local bool failNext = false;
inline thread_local bool failNextNothrow = false;

// How many allocations of this thread, of either form, still succeed before one fails in the same way; -1: none fails.
inline thread_local long untilFailure = -1;

inline bool failsNow(bool& failNextOfThisForm) {
    const bool isCounted = untilFailure == 0;
    if (untilFailure >= 0) {
        --untilFailure;
    }
    return std::exchange(failNextOfThisForm, false) || isCounted;
}

} // namespace replacedNew

#ifndef SORREL_TESTS_NEW_IS_TAKEN

// None of them is inlined, or g++ sees malloc beside delete, or new beside free, and takes that for a mistake.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++replacedNew::count;
    if (replacedNew::failsNow(replacedNew::failNextNothrow)) {
        errno = ENOMEM;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

__attribute__((noinline)) void* operator new(std::size_t size) {
    ++replacedNew::count;
    void* const memory = replacedNew::failsNow(replacedNew::failNext) ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif

#endif // SORREL_TESTS_REPLACED_NEW_HPP
