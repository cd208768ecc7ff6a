// An end for threads that stand still.
#ifndef SORREL_TESTS_STORM_STANDSTILL_HPP
#define SORREL_TESTS_STORM_STANDSTILL_HPP

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

// Watches threads that report each of their operations. Ends the process, as a failed test, when none of them has made
// one for too long, or a single one has not for longer still, and says what it does: locks are not fair, and on a busy
// machine a thread may miss them for a second. Time is counted in looks at the threads, so that a machine that stops as
// a whole does no harm.
class StandstillGuard {
    struct Entry {
        std::string duty;
        std::atomic<unsigned long> operations{0};
        unsigned long seenOperations = 0;
        long idleLooks = 0;
    };

public:
    StandstillGuard(std::chrono::milliseconds patience, std::chrono::milliseconds patienceWithOne)
        : m_allowedLooks(patience / kInterval), m_allowedLooksOfOne(patienceWithOne / kInterval),
          m_thread([this] { watch(); }) {}
    StandstillGuard(const StandstillGuard&) = delete;
    StandstillGuard& operator=(const StandstillGuard&) = delete;
    ~StandstillGuard() {
        m_over = true;
        m_thread.join();
    }

    // A thread that is watched while this lives.
    class Pulse {
    public:
        Pulse(StandstillGuard& guard, std::string duty) : m_guard(guard), m_entry(guard.add(std::move(duty))) {}
        Pulse(const Pulse&) = delete;
        Pulse& operator=(const Pulse&) = delete;
        ~Pulse() { m_guard.remove(m_entry); }

        void beat() { ++m_entry->operations; }
        unsigned long beats() const { return m_entry->operations; }

    private:
        StandstillGuard& m_guard;
        const std::list<Entry>::iterator m_entry;
    };

private:
    static constexpr std::chrono::milliseconds kInterval{20};

    std::list<Entry>::iterator add(std::string duty) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.emplace_front();
        m_entries.front().duty = std::move(duty);
        return m_entries.begin();
    }

    void remove(std::list<Entry>::iterator entry) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.erase(entry);
    }

    void watch() {
        while (!m_over) {
            std::this_thread::sleep_for(kInterval);
            const std::lock_guard<std::mutex> lock(m_mutex);
            bool standsStill = !m_entries.empty();
            for (Entry& entry : m_entries) {
                look(entry);
                standsStill = standsStill && entry.idleLooks > 0;
            }
            m_idleLooks = standsStill ? m_idleLooks + 1 : 0;
            if (m_idleLooks > m_allowedLooks) {
                end(m_entries.front());
            }
        }
    }

    void look(Entry& entry) const {
        const unsigned long operations = entry.operations;
        entry.idleLooks = operations == entry.seenOperations ? entry.idleLooks + 1 : 0;
        entry.seenOperations = operations;
        if (entry.idleLooks > m_allowedLooksOfOne) {
            end(entry);
        }
    }

    [[noreturn]] void end(const Entry& entry) const {
        std::fprintf(stderr, "standstill: the thread that %s, after %lu operations%s\n", entry.duty.c_str(),
                     entry.seenOperations, m_idleLooks > m_allowedLooks ? ", and all others" : "");
        std::_Exit(EXIT_FAILURE);
    }

    const long m_allowedLooks;
    const long m_allowedLooksOfOne;
    long m_idleLooks = 0; // at all of them
    std::mutex m_mutex;
    std::list<Entry> m_entries; // guarded by m_mutex
    std::atomic<bool> m_over{false};
    std::thread m_thread;
};

#endif // SORREL_TESTS_STORM_STANDSTILL_HPP
