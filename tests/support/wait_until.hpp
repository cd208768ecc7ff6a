// Waiting for a condition that another thread brings about.
#ifndef SORREL_TESTS_WAIT_UNTIL_HPP
#define SORREL_TESTS_WAIT_UNTIL_HPP

#include <chrono>
#include <thread>

// Looks at the condition every few milliseconds until it holds. Returns whether it held within the time.
template <class Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

#endif // SORREL_TESTS_WAIT_UNTIL_HPP
