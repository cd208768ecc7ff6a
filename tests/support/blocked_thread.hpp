// Threads that wait for something: a lock, say.
#ifndef SORREL_TESTS_BLOCKED_THREAD_HPP
#define SORREL_TESTS_BLOCKED_THREAD_HPP

#include "proc_self.hpp"
#include "wait_until.hpp"

#include <atomic>
#include <functional>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

// A thread that runs one function.
class ObservedThread {
public:
    explicit ObservedThread(std::function<void()> function)
        : m_thread([this, run = std::move(function)] {
              m_id = static_cast<int>(syscall(SYS_gettid));
              run();
              m_finished = true;
          }) {}
    ObservedThread(const ObservedThread&) = delete;
    ObservedThread& operator=(const ObservedThread&) = delete;
    ~ObservedThread() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    bool isFinished() const { return m_finished; }

    // Waits until the kernel has put the thread to sleep in its function. False when it finished instead, or never
    // slept.
    bool waitUntilBlocked() const {
        waitUntil([this] { return m_finished || (m_id != 0 && waitsForLock(m_id)); });
        return !m_finished;
    }

    void join() { m_thread.join(); }

private:
    std::atomic<int> m_id{0};
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

#endif // SORREL_TESTS_BLOCKED_THREAD_HPP
