// The end of a container: at exit, where other threads may still run, and in a forked child.
#include <sorrel/tangle_log.h>

#include "container/container_scope.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int kMaxWaitMilliseconds = 100;

} // namespace

namespace sorrel {

// What the destructor does, for a container that is gone; but the object stays, and other threads may be in it.
void endAtExit(CLogTargetContainer& container, const int& loggersDepth) {
    const bool alone = container.giveBackMutex(loggersDepth) || container.waitForOthers();
    container.stopWorker(alone);
    if (alone) { // otherwise the worker still uses them
        container.closeDescriptors();
    }
    container.releaseTargets();
}

// Deliberate: a worker that could not be told to end is not joined, and destroying its thread object ends the process.
void CLogTargetContainer::stopWorker(bool join) {
    if (m_worker != nullptr && m_worker->joinable()) {
        const bool own = m_worker->get_id() == std::this_thread::get_id();
        // Somebody may have closed the descriptors: then there is no way to tell it.
        const bool pipeIsLost = m_pipeFds[1] != -1 && !isOwnDescriptor(m_pipeFds[1], PIPE_WRITE_END);
        if (!pipeIsLost && threadNotifyTerminate() != 0) {
            sorrel_tangleLog(LOG_ERR,
                             "logtarget-container: unable to terminate worker thread - forcing exit. (errno=%s)",
                             std::strerror(errno));
        } else if (pipeIsLost || own || !join) {
            m_worker->detach();
        } else {
            m_worker->join();
        }
    }
    delete m_worker;
    m_worker = nullptr;
}

// With exit() called from inside an operation, the exiting thread holds the mutex, and the worker may wait for it.
// Gives it back as often as it is held, by the container and by the logger. False when another thread holds it.
bool CLogTargetContainer::giveBackMutex(const int& loggersDepth) {
    if (!m_mutex.try_lock()) {
        return false;
    }
    for (int depth = m_depth + loggersDepth; depth >= 0; --depth) {
        m_mutex.unlock();
    }
    return true;
}

// Waits a short while for other threads that are inside targets. False when one of them, other than the worker, did not
// come out.
bool CLogTargetContainer::waitForOthers() const {
    for (int i = 0; i < kMaxWaitMilliseconds; ++i) {
        if (__atomic_load_n(&m_depth, __ATOMIC_SEQ_CST) == 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return m_worker != nullptr && pthread_equal(m_holder, m_worker->native_handle()) != 0;
}

bool CLogTargetContainer::isBusy(const CPluggableLogModule& entry) const {
    const int depth = __atomic_load_n(&m_depth, __ATOMIC_SEQ_CST);
    if (depth > kMaxNesting) {
        return true; // not all of them are known
    }
    return std::any_of(m_busy, m_busy + depth, [&entry](const CPluggableLogModule* const& busy) {
        return __atomic_load_n(&busy, __ATOMIC_RELAXED) == &entry;
    });
}

// In a forked child: the worker, the watch and the pipe are the parent's. Its copies of the descriptors are closed, and
// the thread object is put away without a word to the thread. Only calls that a child of a threaded process may make.
void CLogTargetContainer::forgetParent() {
    m_processId = getpid();
    closeOwn(m_epollFd, EPOLL_FD);
    closeOwn(m_inotifyFd, INOTIFY_FD);
    closeOwn(m_pipeFds[0], PIPE_READ_END);
    closeOwn(m_pipeFds[1], PIPE_WRITE_END);
    m_watchFd = -1;
    if (m_worker != nullptr) {
        m_watchAgain = m_watchAgain || m_worker->joinable();
        new (m_worker) std::thread;
    }
}

} // namespace sorrel
