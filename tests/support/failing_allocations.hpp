// Tests that let memory run out at every place in turn. To be included by one source of a program only.
#ifndef SORREL_TESTS_FAILING_ALLOCATIONS_HPP
#define SORREL_TESTS_FAILING_ALLOCATIONS_HPP

#include "replaced_new.hpp"

// Lets one allocation of the calling thread fail: the one after the next `before`. Takes it back at the end of its
// scope.
class FailingAllocation {
public:
    explicit FailingAllocation(long before) { replacedNew::untilFailure = before; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation() { replacedNew::untilFailure = -1; }

    // Whether the allocation has been made, and has failed.
    static bool hasFailed() { return replacedNew::untilFailure == -1; }
};

#endif // SORREL_TESTS_FAILING_ALLOCATIONS_HPP
