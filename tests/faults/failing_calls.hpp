// Lets one call of the library fail. What the library calls in libc comes here first, since the scenario program links
// this before libc; calls that others make pass through.
#ifndef SORREL_TESTS_FAILING_CALLS_HPP
#define SORREL_TESTS_FAILING_CALLS_HPP

namespace failingCalls {

// The call to fail: the first that the library makes of the function is number 1. Calls made on the library's behalf by
// libc and libstdc++, such as malloc below operator new and pthread_create below std::thread, are its calls, too.
struct Fault {
    const char* function = "";
    int error = 0;
    int number = 0;
};

void choose(const Fault& fault);

// Calls count, in all threads and in forked children, while this is on; it is off at first. At most one call fails, and
// "failed once" is reported then. The library's own reports are, too, with "logged" before them.
void setCounting(bool on);

// Whether the call has failed, in whichever process.
bool hasFailed();

// The blocks of memory that the process has allocated and not freed.
long liveBlocks();

// Writes one line to standard output at once. Never fails, and allocates nothing.
__attribute__((format(printf, 1, 2))) void report(const char* format, ...);

} // namespace failingCalls

#endif // SORREL_TESTS_FAILING_CALLS_HPP
