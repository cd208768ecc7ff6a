// With which sanitizers the tests are built.
#ifndef SORREL_TESTS_SANITIZERS_HPP
#define SORREL_TESTS_SANITIZERS_HPP

#if defined(__has_feature) // clang's way to say it
#if __has_feature(address_sanitizer)
#define SORREL_TESTS_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define SORREL_TESTS_THREAD_SANITIZER
#endif
#endif

#if defined(SORREL_TESTS_ADDRESS_SANITIZER) || defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitized = true;
#else
constexpr bool kAddressSanitized = false;
#endif

#if defined(SORREL_TESTS_THREAD_SANITIZER) || defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitized = true;
#else
constexpr bool kThreadSanitized = false;
#endif

#endif // SORREL_TESTS_SANITIZERS_HPP
