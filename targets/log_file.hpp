// A file to which several processes append lines, and which is followed by older ones: FILE, FILE.1, FILE.2.
#ifndef SORREL_TARGETS_LOG_FILE_HPP
#define SORREL_TARGETS_LOG_FILE_HPP

#include "descriptor.hpp"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

// Whoever renames the files holds the lock of the newest one, and whoever has waited for a lock looks whether the file
// still has its name. Without a limit nobody renames here, and nobody locks: a write in append mode is atomic. But on a
// full disk, where the beginning of a line may have to be taken back.
class LogFile {
public:
    // No size but 0 is exceeded, unless by a single line. `count` older files are kept. `wait` is for the lock, in
    // milliseconds.
    LogFile(const std::string& path, mode_t mode, off_t maxSize, int count, int wait)
        : m_names{path}, m_mode(mode), m_maxSize(maxSize), m_wait(wait) {
        for (int number = 1; number <= count; ++number) {
            m_names.push_back(path + "." + std::to_string(number));
        }
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() = default;

    // Makes the file when there is none. Returns 0 or an error number, as the functions below do: EINVAL for what is no
    // regular file.
    int open() { return m_file.get() != -1 ? 0 : renew(); }

    // Opens the file that has the name now, and only then closes the one that was open.
    int renew() {
        // neither a link that somebody has laid here is followed, nor a reader of a pipe waited for
        constexpr int kFlags = O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
        Descriptor file;
        if (!file.take(withHighNumber(::open(path(), kFlags | O_RDWR, m_mode))) &&
            (errno != EACCES || !file.take(withHighNumber(::open(path(), kFlags | O_WRONLY, m_mode))))) {
            return errno == ENXIO ? EINVAL : errno; // a pipe without a reader, or a socket
        }
        if (!S_ISREG(file.status().st_mode)) {
            return EINVAL;
        }
        m_file.swap(file);
        m_isTorn = false;
        m_size = 0;
        seeSize(m_file.status().st_size);
        return 0;
    }

    // Appends whole lines, and takes off what is in the file. Looks once in a second of `seconds` whether the file was
    // renamed or removed by others.
    int append(std::string& lines, long long seconds) {
        // a system call more for each line is worth its cost only where there are others, or the number is a low one
        if ((m_maxSize != 0 || seconds != m_seconds || m_file.get() < kHighNumber) && !m_file.isOpen()) {
            m_file.close();
        }
        if (m_maxSize == 0 && seconds != m_seconds) {
            m_seconds = seconds;
            followName();
        }
        std::size_t written = 0;
        int error = 0;
        while (error == 0 && written < lines.size()) {
            const std::string_view rest = std::string_view(lines).substr(written);
            error = m_maxSize == 0 && !m_isFull ? write(rest, written) : writeLocked(rest, written);
            if (error == EBADF) { // closed by the process
                m_file.close();
                error = open();
            }
        }
        if (m_maxSize != 0 || m_isFull || error != 0) {
            flock(m_file.get(), LOCK_UN);
        }
        m_isFull = error != 0 || (m_isFull && written == 0); // until something was written
        lines.erase(0, written);
        return error;
    }

private:
    const char* path() const { return m_names.front().c_str(); }

    bool isSame(const struct stat& other) const {
        return other.st_dev == m_file.status().st_dev && other.st_ino == m_file.status().st_ino;
    }

    // A process that closes all its descriptors may soon have the low numbers for other files.
    static int withHighNumber(int fd) {
        const int high = fd != -1 ? fcntl(fd, F_DUPFD_CLOEXEC, kHighNumber) : -1;
        if (high == -1) {
            return fd;
        }
        ::close(fd);
        return high;
    }

    // Looks whether the file was renamed or removed. Returns whether it is another one than before, or none. A process
    // that has given up its rights, or changed its root, goes on with the one that it has, as long as that has a name.
    bool followName() {
        struct stat now = {};
        if (lstat(path(), &now) == 0 && isSame(now)) {
            seeSize(now.st_size);
            return false;
        }
        if (renew() == 0) {
            return true;
        }
        if (fstat(m_file.get(), &now) == 0 && now.st_nlink != 0) {
            m_isLocked = false; // since this is not the newest one
            return false;
        }
        m_file.close();
        return true;
    }

    // Where others have written, one of them may have been killed.
    void seeSize(off_t size) {
        if (size != m_size) {
            m_size = size;
            m_looks = kMostLooks;
            lookForTornLine();
        }
    }

    // A process that was killed may have left half a line. A file that may not be read is taken for what it was.
    void lookForTornLine() {
        char last = '\n';
        if (lseek(m_file.get(), -1, SEEK_END) == -1 || read(m_file.get(), &last, 1) == 1) { // an empty one has no end
            m_isTorn = last != '\n';
        }
    }

    // Ends what is half a line, unless another process is writing it at this moment.
    int endTornLine() {
        constexpr timespec kPause = {0, 1000000};
        for (; m_isTorn && m_looks > 0; --m_looks) {
            nanosleep(&kPause, nullptr);
            lookForTornLine();
        }
        const int error = m_isTorn && ::write(m_file.get(), "\n", 1) != 1 ? errno : 0;
        m_isTorn = error != 0;
        return error;
    }

    // Appends the lines that there is room for, or makes room.
    int writeLocked(std::string_view lines, std::size_t& written) {
        int error = lock();
        if (error == 0) {
            const std::size_t size = m_isLocked ? fitting(lines) : lines.size();
            if (size != 0) {
                error = write(lines.substr(0, size), written);
            } else if (!rotate()) { // rather exceeding the limit than losing lines
                error = write(lines, written);
            }
        }
        return error;
    }

    // Locks the file that has the name, and sees how long it is.
    int lock() {
        constexpr int kMostRenames = 100; // while this process waits
        for (int i = 0; i < kMostRenames; ++i) {
            const int error = open();
            if (error != 0) {
                return error;
            }
            m_isLocked = waitForLock();
            if (!followName()) {
                return 0;
            }
        }
        return EAGAIN;
    }

    // Another process may be stopped while it has the lock. It is waited for once, until the lock can be had again; in
    // between lines are written without it, rather exceeding the limit than losing them.
    bool waitForLock() {
        constexpr timespec kPause = {0, 100000};
        while (flock(m_file.get(), LOCK_EX | LOCK_NB) == -1) {
            if (errno != EWOULDBLOCK) {
                return true; // file systems without locks
            }
            const long long now = milliseconds();
            m_refusedSince = m_isRefused ? m_refusedSince : now;
            m_isRefused = true;
            if (now - m_refusedSince >= m_wait) {
                return false;
            }
            nanosleep(&kPause, nullptr);
        }
        m_isRefused = false;
        return true;
    }

    static long long milliseconds() {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
    }

    // The length of the lines that the file has room for. In an empty one there is room for every line.
    std::size_t fitting(std::string_view lines) const {
        if (m_maxSize == 0) {
            return lines.size();
        }
        const off_t room = m_maxSize - m_size - (m_isTorn ? 1 : 0);
        if (room >= 0 && lines.size() <= static_cast<std::size_t>(room)) {
            return lines.size();
        }
        const std::size_t end = room > 0 ? lines.rfind('\n', static_cast<std::size_t>(room) - 1) : std::string::npos;
        if (end != std::string::npos) {
            return end + 1;
        }
        return m_size == 0 ? lines.find('\n') + 1 : 0;
    }

    // Returns whether the file has another name now. Only files in front of the first free name move, so that none is
    // lost where the newest one can never be renamed.
    bool rotate() {
        struct stat status = {};
        std::size_t number = 1;
        while (number + 1 < m_names.size() && lstat(m_names[number].c_str(), &status) == 0) {
            ++number;
        }
        for (; number > 0; --number) {
            if (rename(m_names[number - 1].c_str(), m_names[number].c_str()) == -1) {
                return false;
            }
        }
        return true;
    }

    int write(std::string_view lines, std::size_t& written) {
        int error = open();
        if (error == 0 && m_isTorn) {
            error = endTornLine();
        }
        std::size_t done = 0;
        while (error == 0 && done < lines.size()) {
            const ssize_t count = ::write(m_file.get(), lines.data() + done, lines.size() - done);
            if (count >= 0) {
                done += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                error = errno;
            }
        }
        if (done < lines.size()) {
            const std::size_t whole = lines.substr(0, done).rfind('\n') + 1; // 0 when there is none
            takeBack(done - whole);
            done = whole;
        }
        m_size += static_cast<off_t>(done);
        written += done;
        return error;
    }

    // Takes the beginning of a line off the file, which was full; unless another process has appended behind it.
    void takeBack(std::size_t size) {
        if (size == 0) {
            return;
        }
        (void)waitForLock(); // which this process may have already
        struct stat now = {};
        const off_t end = lseek(m_file.get(), 0, SEEK_CUR);
        if (fstat(m_file.get(), &now) == 0 && now.st_size == end) {
            m_isTorn = ftruncate(m_file.get(), end - static_cast<off_t>(size)) == -1;
        }
    }

    static constexpr int kHighNumber = 1000; // processes may usually have 1024 descriptors
    static constexpr int kMostLooks = 5;

    std::vector<std::string> m_names; // the newest file comes first
    const mode_t m_mode;
    const off_t m_maxSize;
    const int m_wait; // for the lock, in milliseconds
    Descriptor m_file;
    off_t m_size = 0;      // of the file, after this process's last look or write
    bool m_isTorn = false; // the file ends in the middle of a line
    int m_looks = 0;       // until that is taken for certain
    bool m_isLocked = false;
    bool m_isFull = false;    // the disk, or writing fails for another reason
    bool m_isRefused = false; // the lock, since then
    long long m_refusedSince = 0;
    long long m_seconds = 0;
};

} // namespace

#endif // SORREL_TARGETS_LOG_FILE_HPP
