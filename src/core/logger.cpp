// The two loggers of a process: how they are built once, named and destroyed.
#include "core/logger_slot.hpp"

#include "container/gone.hpp"
#include "container/hooks.hpp"
#include "core/component_index.hpp"
#include "core/interned_name.hpp"
#include "core/leaf_lock.hpp"
#include "core/message_path.hpp"
#include "core/thread_record.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <new>
#include <syslog.h>

std::atomic<CSorrel*> sorrel::configuredLogger{nullptr};

namespace {

constexpr char kConfigDirectory[] = "/etc/sorrel";
constexpr std::chrono::milliseconds kPatience{100}; // with other threads, at exit
constexpr char kFirstAppname[] = "[no-appname-set]";

std::atomic<CSorrel*> plainLogger{nullptr};

std::atomic<std::uintptr_t> exitHandler{0}; // the handler's number, by which it can be taken away; 0 for none
thread_local bool handlerIsLeaving = false; // it is called although the process does not end

void endConfiguredLogger() {
    configuredSlot.end();
}

void endPlainLogger() {
    plainSlot.end();
}

void handleExit(void* /*unused*/) {
    if (!handlerIsLeaving) {
        endConfiguredLogger();
    }
}

void* handleOf(std::uintptr_t number) {
    return reinterpret_cast<void*>(number); // NOLINT(performance-no-int-to-ptr): nobody looks behind it
}

// A handler can only be taken away by a call of it.
void removeExitHandler(std::uintptr_t number) {
    if (number != 0) {
        handlerIsLeaving = true;
        abi::__cxa_finalize(handleOf(number));
        handlerIsLeaving = false;
    }
}

// Puts the exit handler behind all others: takes it away, and registers it anew. In this order, since the C library
// uses a place again only when none behind it is in use. Of threads that do it at once, the last number stays.
void moveExitHandler() {
    static std::atomic<std::uintptr_t> lastNumber{0};
    const std::uintptr_t number = ++lastNumber;
    removeExitHandler(exitHandler.exchange(0));
    if (abi::__cxa_atexit(handleExit, nullptr, handleOf(number)) != 0) {
        return; // the logger is then ended as the first that was registered
    }
    std::uintptr_t former = exitHandler;
    while (former < number && !exitHandler.compare_exchange_weak(former, number)) {
    }
    removeExitHandler(std::min(former, number));
}

// The static objects of a library that was loaded after the logger was built would be destroyed before the logger,
// whose target may use them: so the logger is to be ended before them. A library that is gone leaves its places free:
// without a move they would stay so, and the handlers of libraries that come and go would take more and more memory.
void onLibrariesChanged() {
    if (!configuredSlot.hasEnded()) {
        moveExitHandler();
    }
}

// A logger that is gone from the beginning.
struct StandIn {
    CSorrel logger{false};
};

// The record's first use takes the loader's lock. When a target logs during a re-read the container's mutex is held,
// and a thread that loads a library whose static objects log takes the two in the other order.
void onWorkerStarted() {
    sorrel::threadRecord();
}

} // namespace

LoggerSlot configuredSlot(true, sorrel::configuredLogger);
LoggerSlot plainSlot(false, plainLogger);

CSorrel* LoggerSlot::build() {
    if (m_ended) {
        return standIn(); // the thread that holds the mutex may never give it back
    }
    const std::lock_guard<std::recursive_mutex> guard(m_mutex);
    if (m_begun) {
        return stored(); // built by another thread in the meantime, or being built by this one
    }
    prepareForForks();
    sorrel::workerStartedHook = onWorkerStarted;
    sorrel::librariesChangedHook = onLibrariesChanged;
    if (!registerForExit() || !begin()) {
        return standIn();
    }
    try {
        new (m_storage) CSorrel(m_configured);
    } catch (...) {
        m_begun = false; // the handler stays, and finds nothing to end
        throw;
    }
    if (m_configured) { // once more, behind the static objects that were made meanwhile
        moveExitHandler();
    } else {
        std::atexit(endPlainLogger);
    }
    m_published.store(stored(), std::memory_order_release);
    return stored();
}

// For good: the logger is ended even while the handler that can be moved is away. False when the process is so near its
// end that all handlers have been called: that is no error, and leaves errno as it is.
bool LoggerSlot::registerForExit() {
    const sorrel::ErrnoKeeper keeper;
    errno = 0;
    if (!m_registered && std::atexit(m_configured ? endConfiguredLogger : endPlainLogger) != 0) {
        if (errno == ENOMEM) {
            throw std::bad_alloc();
        }
        return false;
    }
    m_registered = true;
    return true;
}

// False when the logger has been ended already. Looks in the opposite order of end(), so that one of the two sees the
// other.
bool LoggerSlot::begin() {
    m_begun = true;
    if (m_ended) {
        m_begun = false;
        return false;
    }
    return true;
}

// Made without a lock, by whoever is first.
CSorrel* LoggerSlot::standIn() {
    static std::atomic<StandIn*> kept{nullptr}; // never freed
    StandIn* known = kept.load();
    if (known == nullptr) {
        auto made = std::make_unique<StandIn>();
        if (kept.compare_exchange_strong(known, made.get())) {
            known = made.release();
        }
    }
    sorrel::markGone(known->logger.m_container);
    return &known->logger;
}

// With exit() called while the logger is being built, it is marked as gone but otherwise left as it stands.
void LoggerSlot::end() noexcept {
    if (m_ended.exchange(true) || !m_begun) {
        return;
    }
    sorrel::markGone(stored()->m_container);
    if (m_published.load(std::memory_order_acquire) != nullptr) {
        const sorrel::Deadline deadline = std::chrono::steady_clock::now() + kPatience;
        stored()->giveBackComponentsLock();
        sorrel::endAtExit(stored()->m_container, stored()->m_registryDepth, deadline);
    }
}

// A logger that is gone takes no lock any more.
CSorrel* LoggerSlot::loggerWithLocks() {
    return m_begun && !isGone(stored()->m_container) ? stored() : nullptr;
}

CSorrel* CSorrel::getInstance() {
    return configuredSlot.get();
}

CSorrel* CSorrel::getInstance_NoSorrel() {
    return plainSlot.get();
}

CSorrel::CSorrel(bool configured) : CSorrel(configured, sorrel::internedName(kFirstAppname), kFirstAppname) {}

// The first name comes in ready-made: once the container stands, nothing may throw any more.
CSorrel::CSorrel(bool configured, const std::string& lastingName, std::string&& ownName)
    : m_container(directoryAfterSetUp(), configured, this) {
    m_appname.swap(ownName);
    __atomic_store_n(&m_namedAs, &lastingName, __ATOMIC_RELEASE);
}

// Sets what stands behind the container in the object: the container uses the logger while it is built.
const char* CSorrel::directoryAfterSetUp() {
    m_number = sorrel::nextLoggerNumber();
    m_namedAs = &sorrel::internedName("");
    m_componentsDepth = 0;
    m_registryDepth = 0;
    return kConfigDirectory;
}

CSorrel::~CSorrel() = default;

void CSorrel::setApplicationname(const std::string& name) {
    storeAppname(name);
    m_container.setAppname(name);
}

void CSorrel::setApplicationname_Nosorrel(const std::string& name) {
    storeAppname(name);
}

void CSorrel::storeAppname(const std::string& name) {
    const std::string& lasting = sorrel::internedName(name);
    if (isGone(m_container)) {
        return;
    }
    const std::lock_guard<std::mutex> guard(sorrel::leafLock);
    m_appname = name;
    __atomic_store_n(&m_namedAs, &lasting, __ATOMIC_RELEASE);
    openlog(lasting.c_str(), LOG_PID | LOG_NDELAY, LOG_USER);
}

const std::string& CSorrel::getAppname() const {
    return *__atomic_load_n(&m_namedAs, __ATOMIC_ACQUIRE);
}
