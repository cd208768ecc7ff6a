// The two loggers of a process: how they are built once, named and destroyed.
#include "core/logger_slot.hpp"

#include "container/gone.hpp"
#include "container/hooks.hpp"
#include "core/component_index.hpp"
#include "core/interned_name.hpp"
#include "core/leaf_lock.hpp"
#include "core/message_path.hpp"
#include "core/thread_record.hpp"

#include <cstdlib>
#include <cxxabi.h>
#include <syslog.h>

std::atomic<CSorrel*> sorrel::configuredLogger{nullptr};

namespace {

constexpr char kConfigDirectory[] = "/etc/sorrel";
constexpr int kPatienceMilliseconds = 100; // with other threads, at exit
constexpr char kFirstAppname[] = "[no-appname-set]";

std::atomic<CSorrel*> plainLogger{nullptr};

char exitHandle;                           // stands for the one exit handler of the configured logger
thread_local bool handlerIsMoving = false; // the handler is called although the process does not end

void endConfiguredLogger(void* /*unused*/) {
    if (!handlerIsMoving) {
        configuredSlot.end();
    }
}

void endPlainLogger() {
    plainSlot.end();
}

void registerExitHandler() {
    abi::__cxa_atexit(endConfiguredLogger, nullptr, &exitHandle);
}

// The static objects of a library that was loaded after the logger was built would be destroyed before the logger,
// whose target may use them: so the logger is to be ended before them. A handler can only be taken away by a call of
// it; one more for each library would never be given back.
void onLibraryLoaded() {
    handlerIsMoving = true;
    abi::__cxa_finalize(&exitHandle);
    handlerIsMoving = false;
    registerExitHandler();
}

// The record's first use takes the loader's lock. When a target logs during a re-read the container's mutex is held,
// and a thread that loads a library whose static objects log takes the two in the other order.
void onWorkerStarted() {
    sorrel::threadRecord();
}

} // namespace

LoggerSlot configuredSlot(true, sorrel::configuredLogger);
LoggerSlot plainSlot(false, plainLogger);

CSorrel* LoggerSlot::build() {
    const std::lock_guard<std::recursive_mutex> guard(m_mutex);
    if (m_begun) {
        return stored(); // built by another thread in the meantime, or being built by this one
    }
    m_begun = true;
    prepareForForks();
    sorrel::workerStartedHook = onWorkerStarted;
    try {
        new (m_storage) CSorrel(m_configured);
    } catch (...) {
        m_begun = false;
        throw;
    }
    if (m_configured) {
        registerExitHandler();
        sorrel::libraryLoadedHook = onLibraryLoaded;
    } else {
        std::atexit(endPlainLogger);
    }
    m_published.store(stored(), std::memory_order_release);
    return stored();
}

void LoggerSlot::end() {
    if (m_published.load(std::memory_order_acquire) != nullptr && !m_ended.exchange(true)) {
        sorrel::markGone(stored()->m_container);
        int patience = kPatienceMilliseconds;
        stored()->drainRegistry(patience);
        sorrel::endAtExit(stored()->m_container, stored()->m_registryDepth, patience);
    }
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
