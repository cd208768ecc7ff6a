// The two loggers of a process: how they are built once, named and destroyed.
#include <sorrel/logger.hpp>

#include "core/message_path.hpp"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <syslog.h>

std::atomic<CSorrel*> sorrel::configuredLogger{nullptr};

namespace {

constexpr char kConfigDirectory[] = "/etc/sorrel";
constexpr char kFirstAppname[] = "[no-appname-set]";

std::atomic<CSorrel*> plainLogger{nullptr};

// Builds a logger at its first use. A function-local static would throw or hang when a target logs while the first read
// of the configuration creates it; here the building thread gets the logger as far as it stands. Initialised statically
// and never destroyed, and the storage is never used for anything else.
class OnceBuiltLogger {
public:
    constexpr OnceBuiltLogger(bool configured, std::atomic<CSorrel*>& published)
        : m_configured(configured), m_published(published) {}

    CSorrel* get() {
        CSorrel* const logger = m_published.load(std::memory_order_acquire);
        return logger != nullptr ? logger : build();
    }

    void destroy() { storedLogger()->CSorrel::~CSorrel(); }

private:
    CSorrel* storedLogger() { return std::launder(reinterpret_cast<CSorrel*>(m_storage)); }
    CSorrel* build();

    const bool m_configured;
    std::atomic<CSorrel*>& m_published;
    std::recursive_mutex m_mutex; // held while the logger is built
    bool m_begun = false;         // guarded by m_mutex
    alignas(CSorrel) unsigned char m_storage[sizeof(CSorrel)] = {};
};

OnceBuiltLogger configuredSlot(true, sorrel::configuredLogger);
OnceBuiltLogger plainSlot(false, plainLogger);

void destroyConfiguredLogger() {
    configuredSlot.destroy();
}

void destroyPlainLogger() {
    plainSlot.destroy();
}

CSorrel* OnceBuiltLogger::build() {
    const std::lock_guard<std::recursive_mutex> guard(m_mutex);
    if (m_begun) {
        return storedLogger(); // built by another thread in the meantime, or being built by this one
    }
    m_begun = true;
    try {
        new (m_storage) CSorrel(m_configured);
    } catch (...) {
        m_begun = false;
        throw;
    }
    std::atexit(m_configured ? destroyConfiguredLogger : destroyPlainLogger);
    m_published.store(storedLogger(), std::memory_order_release);
    return storedLogger();
}

} // namespace

CSorrel* CSorrel::getInstance() {
    return configuredSlot.get();
}

CSorrel* CSorrel::getInstance_NoSorrel() {
    return plainSlot.get();
}

CSorrel::CSorrel(bool configured) : CSorrel(configured, std::string(kFirstAppname)) {}

// The first name comes in ready-made: once the container stands, nothing may throw any more.
CSorrel::CSorrel(bool configured, std::string&& firstAppname) : m_container(kConfigDirectory, configured, this) {
    m_appname.swap(firstAppname);
}

CSorrel::~CSorrel() = default;

void CSorrel::setApplicationname(const std::string& name) {
    storeAppname(name);
    m_container.setAppname(m_appname);
}

void CSorrel::setApplicationname_Nosorrel(const std::string& name) {
    storeAppname(name);
}

// syslog keeps the address of the characters, so the previous name is freed only after openlog was given the new one.
void CSorrel::storeAppname(const std::string& name) {
    std::string previous(name);
    m_appname.swap(previous);
    openlog(m_appname.c_str(), LOG_PID | LOG_NDELAY, LOG_USER);
}

const std::string& CSorrel::getAppname() const {
    return m_appname;
}
