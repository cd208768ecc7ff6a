// An end for tests that may hang.
#ifndef SORREL_TESTS_WATCHDOG_HPP
#define SORREL_TESTS_WATCHDOG_HPP

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

// Ends the process, as a failed test, when it still lives after its time: threads that wait for each other do not end
// otherwise.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds patience = std::chrono::seconds(45))
        : m_thread([this, patience] {
              std::unique_lock<std::mutex> lock(m_mutex);
              if (!m_changed.wait_for(lock, patience, [this] { return m_over; })) {
                  std::fputs("the watchdog ends this test: its threads are stuck\n", stderr);
                  std::_Exit(EXIT_FAILURE);
              }
          }) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_over = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_over = false; // guarded by m_mutex
    std::thread m_thread;
};

#endif // SORREL_TESTS_WATCHDOG_HPP
