// How long a storm is: as written, a part of it under a sanitizer, and shorter or longer as the caller wants.
#ifndef SORREL_TESTS_STORM_SIZE_HPP
#define SORREL_TESTS_STORM_SIZE_HPP

#include <algorithm>
#include <cstdlib>

// The count `n`, times SORREL_STORM_TIMES (environment variable, "10" or "0.1", default 1), divided for the kind of
// build; at least 1.
inline int stormCount(int n) {
    const char* const text = std::getenv("SORREL_STORM_TIMES");
    const double times = text != nullptr ? std::strtod(text, nullptr) : 1.0;
    return std::max(1, static_cast<int>(n * times / SORREL_STORM_DIVISOR));
}

#endif // SORREL_TESTS_STORM_SIZE_HPP
