// The container's life, its lock, and the fan-out to the targets.
#include <sorrel/dynamic_module.hpp>
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

namespace sorrel {

using ContainerGuard = std::lock_guard<CLogTargetContainer>; // locks through the virtual lock() and unlock()

CLogTargetContainer::CLogTargetContainer(const std::string& configPath, bool active, IComponentCfgUpdateSink* sink)
    : m_configPath(configPath), m_worker(nullptr), m_hasSyslogTarget(false), m_updateSink(sink), m_epollFd(-1),
      m_inotifyFd(-1), m_watchFd(-1), m_pipeFds{-1, -1} {
    TARGET_TOKEN_APPLICATION_NAME(); // built now, so that it outlives the worker, which uses it
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
    stopWorker();
    closeDescriptors();
    releaseTargets();
}

void CLogTargetContainer::startUp() {
    if (const char* const directory = secure_getenv("SORL_PATH")) {
        sorrel_tangleLog(7,
                         "logtarget-container: using sorrel config path override from environment: \"%s\" ==> \"%s\"",
                         m_configPath.c_str(), directory);
        m_configPath = directory;
    }
    onCfgUpdate();
    if (init_fds() != 0 || init_epoll_evts() != 0) {
        sorrel_tangleLog(
            3, "logtarget-container: unable to initialize event-handling - not worker thread will be spawned");
        return;
    }
    startWorker();
}

void CLogTargetContainer::startWorker() {
    std::unique_ptr<std::thread> worker(new (std::nothrow) std::thread);
    if (!worker) {
        sorrel_tangleLog(3,
                         "logtarget-container: unable to create worker thread - config-changes will not be monitored. "
                         "(errno=%s)",
                         std::strerror(errno));
        return;
    }
    try {
        *worker = spawnWatcher();
    } catch (const std::system_error& error) {
        const int startErrno = errno;
        worker.reset();
        sorrel_tangleLog(3, "logtarget-container: unable to create worker thread: exception caught: %s - errno=%s",
                         error.what(), std::strerror(startErrno));
        return;
    }
    m_worker = worker.release();
}

// Deliberate: a worker that could not be told to end is not joined, and destroying its thread object ends the process.
void CLogTargetContainer::stopWorker() {
    if (m_worker == nullptr) {
        return;
    }
    if (threadNotifyTerminate() == 0) {
        m_worker->join();
    } else {
        sorrel_tangleLog(3, "logtarget-container: unable to terminate worker thread - forcing exit. (errno=%s)",
                         std::strerror(errno));
    }
    delete m_worker;
    m_worker = nullptr;
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

void CLogTargetContainer::releaseTargets() {
    while (!m_targets.empty()) {
        const auto first = m_targets.begin();
        releaseTarget(first->second);
        m_targets.erase(first);
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
    const ContainerGuard guard(*this);
    for (const auto& entry : m_targets) {
        if (ILogTarget* const target = entry.second.target) {
            target->log(processId, depth, seconds, microseconds, level, threadName, componentName, functionName, text);
        }
    }
}

void CLogTargetContainer::onComponentAdded(sorrel_component* component) {
    const ContainerGuard guard(*this);
    for (const auto& entry : m_targets) {
        if (ILogTarget* const target = entry.second.target) {
            target->onComponentAdded(component);
        }
    }
}

bool CLogTargetContainer::hasSyslogTarget() const {
    return __atomic_load_n(&m_hasSyslogTarget, __ATOMIC_RELAXED);
}

void CLogTargetContainer::setAppname(const std::string& name) {
    if (name == m_appname) {
        return;
    }
    {
        const ContainerGuard guard(*this);
        m_appname = name;
        onCfgUpdate();
        for (const auto& entry : m_targets) {
            if (ILogTarget* const target = entry.second.target) {
                target->setAppname(m_appname);
            }
        }
    }
    // Deliberate: also without a worker, where this fails and says so.
    if (threadNotfiyAppname() != 0) {
        sorrel_tangleLog(3, "logtarget-container: unable to notify thread about a changed appname");
    }
}

} // namespace sorrel
