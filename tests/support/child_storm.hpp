// Many forked children, a few of them at a time.
#ifndef SORREL_TESTS_CHILD_STORM_HPP
#define SORREL_TESTS_CHILD_STORM_HPP

#include "child_process.hpp"

#include <deque>
#include <map>
#include <string>
#include <utility>

// For one thread. Children that hang end by their alarm.
class ChildStorm {
public:
    // How many children ended in a way, of those that did not pass: by "KIND ended with CODE", where a negative code is
    // a signal.
    using Failures = std::map<std::string, int>;

    explicit ChildStorm(std::size_t atATime) : m_atATime(atATime) {}

    // As ::startChildAtOnce; waits first, while as many children run as may.
    template <class Function>
    void start(const std::string& kind, Function function) {
        while (m_running.size() >= m_atATime) {
            endOldest();
        }
        m_running.emplace_back(kind, startChildAtOnce(function));
    }

    // Waits for all.
    const Failures& finish() {
        while (!m_running.empty()) {
            endOldest();
        }
        return m_failures;
    }

    bool hasFailures() const { return !m_failures.empty(); }

private:
    void endOldest() {
        const auto [kind, child] = m_running.front();
        m_running.pop_front();
        const int end = child == -1 ? -1000 : endOfChild(child);
        if (end != kChildPassed) {
            ++m_failures[kind + " ended with " + std::to_string(end)];
        }
    }

    const std::size_t m_atATime;
    std::deque<std::pair<std::string, pid_t>> m_running;
    Failures m_failures;
};

#endif // SORREL_TESTS_CHILD_STORM_HPP
