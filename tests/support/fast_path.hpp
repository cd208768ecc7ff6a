// How the library under test was built.
#ifndef SORREL_TESTS_FAST_PATH_HPP
#define SORREL_TESTS_FAST_PATH_HPP

// Whether plain formats are formatted without vsnprintf, and the process id is kept instead of asked for.
#ifdef SORREL_FAST_PATH
constexpr bool kFastPath = true;
#else
constexpr bool kFastPath = false;
#endif

#endif // SORREL_TESTS_FAST_PATH_HPP
