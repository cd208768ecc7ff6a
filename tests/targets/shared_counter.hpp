// A number that a process shares with its children.
#ifndef SORREL_TESTS_SHARED_COUNTER_HPP
#define SORREL_TESTS_SHARED_COUNTER_HPP

#include <atomic>
#include <sys/mman.h>

// Make it before the children.
class SharedCounter {
public:
    SharedCounter()
        : m_counter(static_cast<std::atomic<unsigned int>*>(mmap(
              nullptr, sizeof(std::atomic<unsigned int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    }
    SharedCounter(const SharedCounter&) = delete;
    SharedCounter& operator=(const SharedCounter&) = delete;
    ~SharedCounter() { munmap(m_counter, sizeof *m_counter); }

    std::atomic<unsigned int>& operator*() { return *m_counter; }

private:
    std::atomic<unsigned int>* const m_counter;
};

#endif // SORREL_TESTS_SHARED_COUNTER_HPP
