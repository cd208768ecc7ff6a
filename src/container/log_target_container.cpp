// The container's life, its lock, and the fan-out to the targets.
#include <sorrel/dynamic_module.hpp>
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include "container/container_scope.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <syslog.h>
#include <unistd.h>

namespace sorrel {

CLogTargetContainer::CLogTargetContainer(const std::string& configPath, bool active, IComponentCfgUpdateSink* sink)
    : m_configPath(configPath), m_worker(nullptr), m_hasSyslogTarget(false), m_updateSink(sink), m_epollFd(-1),
      m_inotifyFd(-1), m_watchFd(-1), m_pipeFds{-1, -1}, m_depth(0), m_busy(), m_tellers(0), m_rereadWanted(false),
      m_renamed(false), m_watchAgain(false), m_rereadFirst(false), m_processId(getpid()), m_identities() {
    if (!active) {
        return;
    }
    try {
        startUp();
    } catch (...) {
        for (const auto& entry : m_targets) {
            entry.second.module->keepMapped(); // the code of the exception may live in it
        }
        closeDescriptors();
        releaseTargets();
        throw;
    }
}

CLogTargetContainer::~CLogTargetContainer() {
    if (getpid() != m_processId) {
        forgetParent();
    }
    stopWorker();
    closeDescriptors();
    releaseTargets();
}

void CLogTargetContainer::startUp() {
    if (const char* const directory = secure_getenv("SORL_PATH")) {
        sorrel_tangleLog(LOG_DEBUG,
                         "logtarget-container: using sorrel config path override from environment: \"%s\" ==> \"%s\"",
                         m_configPath.c_str(), directory);
        m_configPath = directory;
    }
    onCfgUpdate();
    watch();
}

// From here on the file is watched, or it is said that it is not.
void CLogTargetContainer::watch() {
    if (init_fds() != 0 || init_epoll_evts() != 0) {
        sorrel_tangleLog(
            LOG_ERR, "logtarget-container: unable to initialize event-handling - not worker thread will be spawned");
        return;
    }
    if (m_rereadFirst && !currentAppname().empty()) {
        onAppnameChanged();
    }
    startWorker();
}

void CLogTargetContainer::startWorker() {
    std::unique_ptr<std::thread> worker(new (std::nothrow) std::thread);
    if (!worker) {
        sorrel_tangleLog(
            LOG_ERR,
            // clang-format off
                         "logtarget-container: unable to create worker thread - config-changes will not be monitored. (errno=%s)",
            // clang-format on
            std::strerror(errno));
        return;
    }
    try {
        *worker = spawnWatcher();
    } catch (const std::system_error& error) {
        const int startErrno = errno;
        worker.reset();
        sorrel_tangleLog(LOG_ERR,
                         "logtarget-container: unable to create worker thread: exception caught: %s - errno=%s",
                         error.what(), std::strerror(startErrno));
        return;
    }
    m_worker = worker.release();
}

// Tells the factory to destroy the target, then closes its library. The entry stays in the map meanwhile, because the
// target may log from its destructor and its library from its done function; the latter must not meet the target.
void CLogTargetContainer::releaseTarget(CPluggableLogModule& entry) {
    if (auto* const factory = static_cast<IClassFactory*>(entry.module->getClassFactory())) {
        factory->destroyObject(entry.target);
    }
    entry.target = nullptr;
    delete entry.module;
    entry.module = nullptr;
}

// When the process exits, targets that are busy stay as they are; others may be unloaded but not yet erased.
void CLogTargetContainer::releaseTargets() {
    for (auto it = m_targets.begin(); it != m_targets.end();) {
        if (isBusy(it->second) || it->second.module == nullptr) {
            ++it;
        } else {
            releaseTarget(it->second);
            it = m_targets.erase(it);
        }
    }
}

void CLogTargetContainer::lock() {
    m_mutex.lock();
}

void CLogTargetContainer::unlock() {
    m_mutex.unlock();
}

void CLogTargetContainer::log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
                              const std::string& threadName, const std::string& componentName,
                              const std::string& functionName, const std::string& text) {
    perform([&](Scope& scope) {
        scope.forEachTarget([&](ILogTarget& target) {
            target.log(processId, depth, seconds, microseconds, level, threadName, componentName, functionName, text);
        });
    });
}

void CLogTargetContainer::onComponentAdded(sorrel_component* component) {
    perform(
        [&](Scope& scope) { scope.forEachTarget([&](ILogTarget& target) { target.onComponentAdded(component); }); });
}

bool CLogTargetContainer::hasSyslogTarget() const {
    return __atomic_load_n(&m_hasSyslogTarget, __ATOMIC_RELAXED);
}

void CLogTargetContainer::onCfgUpdate() {
    perform([&](Scope&) { m_rereadWanted = true; });
}

void CLogTargetContainer::setAppname(const std::string& name) {
    if (name == currentAppname()) {
        return;
    }
    perform([&](Scope&) {
        storeAppname(name);
        m_rereadWanted = true;
        m_renamed = true;
    });
}

// Notes, at the end of an operation, while the mutex is held, that this thread is about to tell the worker: until it
// has, the descriptors stay open at exit.
struct CLogTargetContainer::TellerNote {
    ~TellerNote() {
        if (tellsWorker) {
            __atomic_fetch_add(&container.m_tellers, 1, __ATOMIC_SEQ_CST);
        }
    }

    CLogTargetContainer& container;
    const bool& tellsWorker;
};

// The frame of every operation: under the mutex what it does, then, when no other operation is on the thread's stack,
// what was asked for meanwhile; at last, without the operation's hold on the mutex, the worker is told of a new name.
template <typename Operation>
void CLogTargetContainer::perform(Operation operation) {
    bool tellWorker = false;
    try {
        Scope scope(*this);
        if (!scope) {
            return;
        }
        const TellerNote note{*this, tellWorker};
        if (m_watchAgain && scope.isOutermost()) {
            watchAgain();
        }
        operation(scope);
        if (m_rereadWanted && scope.isOutermost()) {
            doWhatWaits(scope, tellWorker);
        }
    } catch (...) {
        if (tellWorker) {
            tellWorkerTheName();
        }
        throw;
    }
    if (tellWorker) {
        tellWorkerTheName();
    }
}

// The end of doWhatWaits, without the mutex: the pipe may be full. Deliberate: also without a worker, where this fails
// and says so.
void CLogTargetContainer::tellWorkerTheName() {
    if (!isGone(*this) && threadNotfiyAppname() != 0) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: unable to notify thread about a changed appname");
    }
    __atomic_fetch_sub(&m_tellers, 1, __ATOMIC_SEQ_CST);
}

// Re-reads the configuration, and tells the targets a new name, until nobody asks for it any more. Targets that each
// insist on another name are not heard for ever.
void CLogTargetContainer::doWhatWaits(Scope& scope, bool& tellWorker) {
    for (int round = 0; m_rereadWanted && !isGone(*this); ++round) {
        m_rereadWanted = false;
        FirstException thrown;
        if (round == kMaxRereads) {
            m_renamed = false;
        } else if (m_renamed) {
            tellWorker = true;
            rereadRenamed(scope, thrown);
        } else {
            reread(thrown);
        }
        thrown.rethrow();
    }
}

// When the file could not be applied, because something has thrown, the next re-read tells the targets. A target that
// throws later, in the sweep or from setAppname, keeps nobody from the name.
void CLogTargetContainer::rereadRenamed(Scope& scope, FirstException& thrown) {
    m_renamed = false;
    std::string name;
    try {
        const Scope inner(*this); // a re-read takes the mutex itself, wherever it comes from
        reread(thrown);
        name = currentAppname();
    } catch (...) {
        m_renamed = true;
        throw;
    }
    if (isGone(*this)) {
        return;
    }
    scope.forEachTarget([&](ILogTarget& target) { thrown.keepFrom([&] { target.setAppname(name); }); });
}

// A forked child has no worker. What changed since the fork is read by the new one.
void CLogTargetContainer::watchAgain() {
    m_watchAgain = false;
    delete m_worker;
    m_worker = nullptr;
    m_rereadFirst = true;
    watch();
}

} // namespace sorrel
