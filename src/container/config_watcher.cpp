// The worker thread that watches the configuration file, and how it is told things.
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include "container/hooks.hpp"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <cxxabi.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t kWatchMask = IN_CLOSE_WRITE | IN_DELETE;

ssize_t readRetrying(int fd, void* buffer, size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, buffer, size);
    } while (got == -1 && errno == EINTR);
    return got;
}

// A queued event that carries a name is longer than its header, and cannot be read as one: the watched path is a
// directory. It has to go, or it would be reported without end.
void dropNamedEvents(int inotifyFd) {
    char events[4096];
    readRetrying(inotifyFd, events, sizeof events);
}

// Blocks all signals in its scope, for a thread that is started there: signals are the application's business.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_previous);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

private:
    sigset_t m_previous;
};

// What is thrown on the worker has nobody to go to; the thread goes on. A cancelled thread still unwinds.
template <typename Work>
void swallowExceptions(Work work) {
    try {
        work();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) { // NOLINT(bugprone-empty-catch): what was done so far stays
    }
}

} // namespace

namespace sorrel {

int CLogTargetContainer::init_fds() {
    m_epollFd = epoll_create(1);
    if (m_epollFd == -1) {
        return -1;
    }
    keepDescriptor(m_epollFd, EPOLL_FD);
    m_inotifyFd = inotify_init();
    if (m_inotifyFd == -1) {
        close_fd(m_epollFd);
        return -1;
    }
    keepDescriptor(m_inotifyFd, INOTIFY_FD);
    m_watchFd = inotify_add_watch(m_inotifyFd, getDefaultCfgFilename().c_str(), kWatchMask);
    if (m_watchFd == -1) {
        close_fd(m_inotifyFd); // Deliberate: epoll stays open until the destructor.
        return -1;
    }
    int ends[2];
    if (pipe(ends) != 0) {
        close_wd(m_watchFd); // Deliberate: epoll and inotify stay open until the destructor.
        return -1;
    }
    m_pipeFds[0] = ends[0];
    m_pipeFds[1] = ends[1];
    keepDescriptor(m_pipeFds[0], PIPE_READ_END);
    keepDescriptor(m_pipeFds[1], PIPE_WRITE_END);
    return 0;
}

int CLogTargetContainer::init_epoll_evts() {
    for (const int fd : {m_inotifyFd, m_pipeFds[0]}) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        if (epoll_ctl(m_epollFd, EPOLL_CTL_ADD, fd, &event) != 0) {
            return -1;
        }
    }
    return 0;
}

// Epoll first; the watch while inotify is still open.
void CLogTargetContainer::closeDescriptors() {
    if (!isPipeLost()) {
        closeOwn(m_epollFd, EPOLL_FD);
        if (isOwnDescriptor(m_inotifyFd, INOTIFY_FD)) {
            close_wd(m_watchFd);
        }
        closeOwn(m_inotifyFd, INOTIFY_FD);
    }
    closeOwn(m_pipeFds[0], PIPE_READ_END);
    closeOwn(m_pipeFds[1], PIPE_WRITE_END);
}

void CLogTargetContainer::close_wd(int& wd) {
    if (wd != -1 && m_inotifyFd != -1) {
        inotify_rm_watch(m_inotifyFd, wd);
        wd = -1;
    }
}

int CLogTargetContainer::notifyThread(thread_notification notification) {
    if (m_pipeFds[1] == -1) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: invalid pipe-fd (notify)");
        return -1;
    }
    const bool lost = isPipeLost();
    errno = lost ? EBADF : errno; // somebody closed an end: its number may stand for another file, or nobody reads
    if (lost || write(m_pipeFds[1], &notification, sizeof notification) != static_cast<ssize_t>(sizeof notification)) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: unable to write to pipe (notify) - errno=%s",
                         std::strerror(errno));
        return -1;
    }
    return 0;
}

int CLogTargetContainer::threadNotifyTerminate() {
    return notifyThread(THREAD_NOTIFICATION_TERMINATE);
}

int CLogTargetContainer::threadNotfiyAppname() {
    return notifyThread(THREAD_NOTIFICATION_APPNAME);
}

std::thread CLogTargetContainer::spawnWatcher() {
    const SignalsBlocked scope;
    return std::thread(outerThreadStartup, this);
}

void CLogTargetContainer::outerThreadStartup(CLogTargetContainer* container) {
    if (container != nullptr) {
        container->threadStartup();
    }
}

int CLogTargetContainer::threadStartup() {
    callHook(workerStartedHook);
    if (m_rereadFirst) {
        m_rereadFirst = false;
        swallowExceptions([this] { onCfgUpdate(); });
    }
    return threadEventLoop();
}

// Ends in silence when somebody else has closed the descriptors. Then the container may be gone, too: nothing of it is
// looked at before that is known.
int CLogTargetContainer::threadEventLoop() {
    const int epollFd = m_epollFd;
    const int readEnd = m_pipeFds[0];
    const DescriptorIdentity kept = m_identities[PIPE_READ_END];
    const auto isLost = [&kept, readEnd] { return readEnd != -1 && !standsFor(readEnd, kept); };
    while (!isLost()) {
        epoll_event events[2];
        const int count = epoll_wait(epollFd, events, 2, -1);
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            const int waitErrno = errno;
            if (!isLost()) {
                sorrel_tangleLog(LOG_ERR,
                                 "logtarget-container: epoll failed with errno=%s - terminating watcher thread.",
                                 std::strerror(waitErrno));
            }
            return 0;
        }
        if (count == 0) {
            sorrel_tangleLog(LOG_ERR, "logtarget-container: epoll reported timeout!?");
        }
        for (int i = 0; i < count && !isLost(); ++i) {
            if (events[i].data.fd == m_inotifyFd) {
                onInotifyEvent();
            } else if (events[i].data.fd == readEnd && !onNotification()) {
                return 0;
            }
        }
    }
    return 0;
}

void CLogTargetContainer::onInotifyEvent() {
    inotify_event event;
    const ssize_t got = readRetrying(m_inotifyFd, &event, sizeof event);
    if (got != static_cast<ssize_t>(sizeof event)) {
        const bool named = got == -1 && errno == EINVAL;
        sorrel_tangleLog(LOG_ERR, "logtarget-container: unable to read inotify event - dropped event.");
        if (named) {
            dropNamedEvents(m_inotifyFd);
        }
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) {
        sorrel_tangleLog(LOG_DEBUG,
                         "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x%x, watch-fd=%i)",
                         event.mask, event.wd);
        return;
    }
    sorrel_tangleLog(LOG_DEBUG, "logtarget-container: sorrel configfile changed, triggering re-read.");
    swallowExceptions([this] { onCfgUpdate(); });
}

// False when the worker is to end.
bool CLogTargetContainer::onNotification() {
    int notification = 0;
    if (readRetrying(m_pipeFds[0], &notification, sizeof notification) != static_cast<ssize_t>(sizeof notification)) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: worker unable to receive notification - terminating thread.");
        return false;
    }
    if (notification == THREAD_NOTIFICATION_TERMINATE) {
        sorrel_tangleLog(LOG_DEBUG, "logtarget-container: got exit message - ending thread.");
        return false;
    }
    if (notification == THREAD_NOTIFICATION_APPNAME) {
        swallowExceptions([this] { onAppnameChanged(); });
    }
    return true;
}

void CLogTargetContainer::onAppnameChanged() {
    if (m_watchFd == -1 || m_inotifyFd == -1 || isPipeLost()) {
        return;
    }
    const std::string appname = currentAppname();
    const std::string file = cfgFilenameOf(appname);
    if (access(file.c_str(), F_OK) != 0) {
        return;
    }
    sorrel_tangleLog(LOG_DEBUG, "logtarget-container: removing old watch-descriptor %i", m_watchFd);
    if (inotify_rm_watch(m_inotifyFd, m_watchFd) != 0) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: Unable remove old inotify watch - errno=%s",
                         std::strerror(errno));
        return;
    }
    m_watchFd = inotify_add_watch(m_inotifyFd, file.c_str(), kWatchMask);
    // Deliberate: both messages name the application, not the file.
    if (m_watchFd < 1) {
        sorrel_tangleLog(
            LOG_ERR,
            "logtarget-container: Unable to watch application-specific config-file \"%s\" for changes - errno=%s",
            appname.c_str(), std::strerror(errno));
        return;
    }
    sorrel_tangleLog(LOG_DEBUG, "logtarget-container: Watching application-specific config-file \"%s\" for changes",
                     appname.c_str());
}

} // namespace sorrel
