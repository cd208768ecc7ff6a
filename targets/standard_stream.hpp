// Standard output or standard error, written to so that the process neither waits for the reader nor dies with it.
#ifndef SORREL_TARGETS_STANDARD_STREAM_HPP
#define SORREL_TARGETS_STANDARD_STREAM_HPP

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

namespace {

// While it exists, a write of this thread to a pipe without a reader fails, and raises nothing. What the process does
// with the signal stays as it is.
class NoBrokenPipe {
public:
    NoBrokenPipe() {
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_mask);
    }
    NoBrokenPipe(const NoBrokenPipe&) = delete;
    NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;
    ~NoBrokenPipe() {
        constexpr timespec kNoWait = {0, 0};
        while (!m_wasPending && sigtimedwait(&m_signal, nullptr, &kNoWait) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    }

private:
    sigset_t m_signal = {};
    sigset_t m_mask = {};
    bool m_wasPending = false;
};

// The pipe or terminal of a descriptor, opened once more: whether writing may wait is settled for all who share a
// descriptor, and this one is shared by nobody. Open for one line only, since the reader sees the end of a pipe when
// all have closed it. Where it cannot be opened, the given one it is.
class OwnDescriptor {
public:
    OwnDescriptor(const std::string& path, int shared)
        : m_opened(openOnceMore(path.c_str(), shared)), m_fd(isOwn() ? m_opened : shared) {}
    OwnDescriptor(const OwnDescriptor&) = delete;
    OwnDescriptor& operator=(const OwnDescriptor&) = delete;
    ~OwnDescriptor() {
        if (isOwn()) {
            close(m_opened);
        }
    }

    bool isOwn() const { return m_opened != -1; }
    int get() const { return m_fd; }

private:
    // Anybody may open the terminal of the own session, also one that belongs to another user.
    static int openOnceMore(const char* path, int shared) {
        constexpr int kFlags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
        int opened = open(path, kFlags);
        if (opened == -1 && tcgetsid(shared) == getsid(0)) {
            opened = open("/dev/tty", kFlags);
        }
        return opened;
    }

    const int m_opened;
    const int m_fd;
};

// "DEVICE:INODE" of the stream that leads to the journal, as its service manager says.
inline std::string journalStream() {
    const char* const value = std::getenv("JOURNAL_STREAM");
    return value != nullptr ? value : "";
}

class StandardStream {
public:
    // A reader that is not ready is waited for this long, once until it has read a whole line again.
    StandardStream(int fd, int waitMilliseconds)
        : m_fd(fd), m_path("/proc/self/fd/" + std::to_string(fd)), m_wait(waitMilliseconds) {}

    // Sees where the stream leads, for the process may redirect it at any time. A file that is appended to is looked at
    // once in a second of `seconds`: a write finds out by itself what it has become. Does not ask for times: those of a
    // file that were asked for have to be renewed by the next write.
    void look(long long seconds) {
        if (m_isAppended && seconds == m_seconds) {
            return;
        }
        m_seconds = seconds;
        m_isAppended = false;
        struct statx now = {};
        if (statx(m_fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_INO, &now) != 0) {
            return;
        }
        const dev_t device = makedev(now.stx_dev_major, now.stx_dev_minor);
        const bool isAnother = device != m_device || now.stx_ino != m_inode;
        m_mode = now.stx_mode;
        m_isAppended = m_canAppend && S_ISREG(m_mode) && (fcntl(m_fd, F_GETFL) & O_APPEND) != 0;
        if (isAnother) {
            m_device = device;
            m_inode = now.stx_ino;
            m_isTorn = false;
            m_isTerminal = S_ISCHR(m_mode) && isatty(m_fd) == 1;
            m_isJournal = m_journal == std::to_string(device) + ":" + std::to_string(m_inode);
        }
    }

    bool isTerminal() const { return m_isTerminal; }
    bool isJournal() const { return m_isJournal; }

    // Writes a line, after a line feed when the last one was cut off. Returns 0 or the error number.
    int write(std::string& line) {
        if (m_isTorn) {
            line.insert(0, 1, '\n');
        }
        std::size_t done = 0;
        const int error = m_isAppended ? append(line, done) : writeAsItIs(line, done);
        if (done != 0) {
            m_isTorn = line[done - 1] != '\n';
        }
        return error;
    }

private:
    // For what was a file at the last look. The kernel refuses to append so to what has become a pipe or a terminal,
    // which would hold us up or raise a signal; and old ones do not know how to.
    int append(std::string& line, std::size_t& done) {
        while (done < line.size()) {
            const iovec rest = {line.data() + done, line.size() - done};
            const ssize_t count = pwritev2(m_fd, &rest, 1, 0, RWF_APPEND);
            if (count >= 0) {
                done += static_cast<std::size_t>(count);
            } else if (errno == ESPIPE || errno == EOPNOTSUPP || errno == ENOSYS) {
                m_canAppend = errno == ESPIPE;
                m_isAppended = false;
                look(m_seconds);
                return writeAsItIs(line, done);
            } else if (errno != EINTR) {
                return errno;
            }
        }
        return 0;
    }

    int writeAsItIs(const std::string& line, std::size_t& done) {
        return S_ISREG(m_mode) ? writeToFile(line, done) : writeToReader(line, done);
    }

    int writeToFile(const std::string& line, std::size_t& done) const {
        while (done < line.size()) {
            const ssize_t count = ::write(m_fd, line.data() + done, line.size() - done);
            if (count >= 0) {
                done += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                return errno;
            }
        }
        return 0;
    }

    int writeToReader(const std::string& line, std::size_t& done) {
        if (S_ISSOCK(m_mode)) {
            return writeSome(
                line, done,
                [this](const char* data, std::size_t size) {
                    return send(m_fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
                },
                m_fd);
        }
        const NoBrokenPipe none;
        const OwnDescriptor own(m_path, m_fd);
        // a terminal that is ready has room for one byte, and perhaps for no more
        const std::size_t most = m_isTerminal && !own.isOwn() ? 1 : PIPE_BUF;
        return writeSome(
            line, done,
            [&own, most](const char* data, std::size_t size) { return ::write(own.get(), data, std::min(size, most)); },
            own.get());
    }

    template <typename Write>
    int writeSome(const std::string& line, std::size_t& done, Write write, int fd) {
        while (done < line.size()) {
            if (!isReady(fd)) {
                return EAGAIN;
            }
            const ssize_t count = write(line.data() + done, line.size() - done);
            if (count >= 0) {
                done += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                return errno;
            }
        }
        m_patience = m_wait;
        return 0;
    }

    bool isReady(int fd) {
        using std::chrono::steady_clock;
        pollfd stream = {fd, POLLOUT, 0};
        int ready = poll(&stream, 1, 0);
        while (ready != 1 && m_patience > 0) {
            const steady_clock::time_point start = steady_clock::now();
            ready = poll(&stream, 1, m_patience);
            const auto waited = std::chrono::ceil<std::chrono::milliseconds>(steady_clock::now() - start);
            m_patience -= static_cast<int>(waited.count());
        }
        return ready == 1;
    }

    const int m_fd; // belongs to the process
    const std::string m_path;
    const int m_wait;
    const std::string m_journal = journalStream();
    dev_t m_device = 0;
    std::uint64_t m_inode = 0;
    mode_t m_mode = 0;
    long long m_seconds = 0;   // of the last look
    bool m_isAppended = false; // a file, in append mode
    bool m_canAppend = true;   // the kernel is new enough
    bool m_isTerminal = false;
    bool m_isJournal = false;
    bool m_isTorn = false;
    int m_patience = m_wait; // what is left of it
};

} // namespace

#endif // SORREL_TARGETS_STANDARD_STREAM_HPP
