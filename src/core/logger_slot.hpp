// One of the two loggers of a process, built once.
#ifndef SORREL_CORE_LOGGER_SLOT_HPP
#define SORREL_CORE_LOGGER_SLOT_HPP

#include <sorrel/logger.hpp>

#include <atomic>
#include <mutex>
#include <new>

// Builds a logger at its first use. A function-local static would throw or hang when a target logs while the first read
// of the configuration creates it; here the building thread gets the logger as far as it stands. Initialised statically
// and never destroyed: at exit the logger does what its destructor does, but the object stays, since threads that still
// run may come to it.
class LoggerSlot {
public:
    constexpr LoggerSlot(bool configured, std::atomic<CSorrel*>& published)
        : m_configured(configured), m_published(published) {}

    // The logger, built now if need be; also after it was ended at exit, when it does nothing any more. For one that
    // was ended before it was whole there is a stand-in, so that nobody waits for the thread that builds it.
    CSorrel* get() {
        CSorrel* const logger = m_published.load(std::memory_order_acquire);
        return logger != nullptr ? logger : build();
    }

    // Ends the logger, if it was not ended before. One that was not built will not be any more. What a target throws
    // then ends the process.
    void end() noexcept;
    bool hasEnded() const { return m_ended; }

    // For fork.cpp, which holds the mutex.
    std::recursive_mutex& mutex() { return m_mutex; }
    bool isBeingBuilt() const { return m_begun && m_published.load(std::memory_order_relaxed) == nullptr; }
    CSorrel* loggerWithLocks();

private:
    CSorrel* stored() { return std::launder(static_cast<CSorrel*>(static_cast<void*>(m_storage))); }
    CSorrel* build();
    bool registerForExit();
    bool begin();
    static CSorrel* standIn();

    const bool m_configured;
    std::atomic<CSorrel*>& m_published;
    std::recursive_mutex m_mutex; // held while the logger is built
    bool m_registered = false;    // for the end of the process
    std::atomic<bool> m_begun{false};
    std::atomic<bool> m_ended{false};
    alignas(CSorrel) unsigned char m_storage[sizeof(CSorrel)] = {};
};

extern LoggerSlot configuredSlot;
extern LoggerSlot plainSlot;

// Registers, once, what makes fork(2) safe for the two loggers. Called when the library is loaded, and by a logger that
// is built before.
void prepareForForks();

#endif // SORREL_CORE_LOGGER_SLOT_HPP
