// Between the functions that stand in for those of libc and the choice of the call that fails.
#ifndef SORREL_TESTS_STAND_INS_HPP
#define SORREL_TESTS_STAND_INS_HPP

#include <atomic>
#include <cstdarg>

namespace failingCalls {

// Whether this call of the function is the one to fail; errno is set then, and kept otherwise.
bool failsNow(const char* function);

// That of libc.
void* realFunction(const char* name);

// What the library says: warnings and worse are reported.
__attribute__((format(printf, 2, 0))) void noteMessage(int priority, const char* format, va_list args);

// Of memory, which are allocated and not freed.
inline std::atomic<long> blocks{0};

} // namespace failingCalls

#endif // SORREL_TESTS_STAND_INS_HPP
