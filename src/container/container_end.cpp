// The end of a container: at exit, where other threads may still run, and in a forked child.
#include <sorrel/tangle_log.h>

#include "container/container_scope.hpp"
#include "container/gone.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <syslog.h>
#include <unistd.h>

namespace sorrel {

// What the destructor does, for a container that is gone; but the object stays, and other threads may be in it.
void endAtExit(CLogTargetContainer& container, const int& loggersDepth, Deadline deadline) {
    if (getpid() != container.m_processId) {
        container.forgetParent(); // a child that no fork handler has seen
    }
    const bool alone = container.giveBackMutex(loggersDepth) || container.waitForOthers(deadline);
    const auto isNoneTelling = [&container] { return __atomic_load_n(&container.m_tellers, __ATOMIC_SEQ_CST) == 0; };
    if (alone && waitAtExit(deadline, isNoneTelling)) {
        container.stopWorker();
        container.closeDescriptors();
    } else if (container.m_worker != nullptr && container.m_worker->joinable()) {
        container.m_worker->detach(); // it is stuck, or waits for the one who is, and still uses the descriptors
    }
    if (alone || container.othersAreInTarget()) {
        container.releaseTargets();
    }
}

// Deliberate: a worker that could not be told to end is not joined, and destroying its thread object ends the process.
void CLogTargetContainer::stopWorker() {
    if (m_worker != nullptr && m_worker->joinable()) {
        const bool own = m_worker->get_id() == std::this_thread::get_id();
        // Somebody may have closed the descriptors: then there is no way to tell it.
        const bool pipeIsLost = isPipeLost();
        if (!pipeIsLost && threadNotifyTerminate() != 0) {
            sorrel_tangleLog(LOG_ERR,
                             "logtarget-container: unable to terminate worker thread - forcing exit. (errno=%s)",
                             std::strerror(errno));
        } else if (pipeIsLost || own) {
            m_worker->detach();
        } else {
            m_worker->join();
        }
    }
    delete m_worker;
    m_worker = nullptr;
}

// With exit() called from inside an operation, the exiting thread holds the mutex, and the worker may wait for it.
// Gives it back as often as it is held, by the container and by the logger, whose depth others may change until the
// mutex is taken. False when another thread holds it.
bool CLogTargetContainer::giveBackMutex(const int& loggersDepth) {
    if (!takeAtExit(m_mutex)) {
        return false;
    }
    for (int depth = m_depth + loggersDepth; depth >= 0; --depth) {
        m_mutex.unlock();
    }
    return true;
}

// Waits a short while until the mutex is free. Who takes it later sees that the container is gone. False when somebody
// holds it all the time.
bool CLogTargetContainer::waitForOthers(Deadline deadline) {
    return waitAtExit(deadline, [this] {
        if (!takeAtExit(m_mutex)) {
            return false;
        }
        m_mutex.unlock();
        return true;
    });
}

// Whether the thread whose operations are not over is inside a target: when that returns, it touches nothing any more.
bool CLogTargetContainer::othersAreInTarget() const {
    const int depth = __atomic_load_n(&m_depth, __ATOMIC_ACQUIRE);
    return depth == 0 || (depth <= kMaxNesting && __atomic_load_n(&m_busy[depth - 1], __ATOMIC_ACQUIRE) != nullptr);
}

bool CLogTargetContainer::isBusy(const CPluggableLogModule& entry) const {
    const int depth = __atomic_load_n(&m_depth, __ATOMIC_ACQUIRE);
    if (depth > kMaxNesting) {
        return true; // not all of them are known
    }
    return std::any_of(m_busy, m_busy + depth, [&entry](const CPluggableLogModule* const& busy) {
        return __atomic_load_n(&busy, __ATOMIC_ACQUIRE) == &entry;
    });
}

// In a forked child: the worker, the watch and the pipe are the parent's. Its copies of the descriptors are closed, and
// the thread object is put away without a word to the thread. Only calls that a child of a threaded process may make.
void CLogTargetContainer::forgetParent() {
    m_processId = getpid();
    m_watchFd = -1; // before inotify is closed: the parent's watch stays
    closeDescriptors();
    m_epollFd = m_inotifyFd = m_pipeFds[0] = m_pipeFds[1] = -1;
    m_tellers = 0;
    if (m_worker != nullptr) {
        m_watchAgain = m_watchAgain || m_worker->joinable();
        new (m_worker) std::thread;
    }
}

} // namespace sorrel
