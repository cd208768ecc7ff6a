// The files of rings: their names, how they are made, and which of them may go.
#ifndef SORREL_TARGETS_RECORDER_FILE_HPP
#define SORREL_TARGETS_RECORDER_FILE_HPP

#include "descriptor.hpp"
#include "file_pattern.hpp"
#include "recorder_format.hpp"
#include "recorder_process.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace recorder {
namespace {

// Where rings lie.
class RingName {
public:
    // Throws std::invalid_argument for what is no pattern, and for one whose rings of other processes cannot be found.
    RingName(const std::string& pattern, const std::string& applicationName) : m_pattern(pattern, applicationName) {
        if (hidesProcessId(FilePattern(pattern, "0").text())) { // the name of an application may begin with a digit
            throw std::invalid_argument("has a %p where old rings are not found: before the last / or in front of a "
                                        "digit, %a or %p");
        }
    }

    std::string pathFor(pid_t processId) const { return m_pattern.pathFor(processId); }

    // Whether a file of the directory may have been made with this pattern, by any process.
    bool matches(const std::string& fileName) const {
        const std::string& pattern = m_pattern.text();
        std::string::size_type at = 0;
        for (std::string::size_type i = pattern.rfind('/') + 1; i < pattern.size(); ++i) {
            if (pattern[i] == kProcessId) {
                const std::string::size_type begin = at;
                at = std::min(fileName.find_first_not_of(kDigits, at), fileName.size());
                if (at == begin) {
                    return false;
                }
            } else if (at >= fileName.size() || fileName[at++] != pattern[i]) {
                return false;
            }
        }
        const bool hasNumber = at + 1 < fileName.size() && fileName[at] == '.';
        return at == fileName.size() || (hasNumber && fileName.find_first_not_of(kDigits, at + 1) == std::string::npos);
    }

private:
    static constexpr char kProcessId = FilePattern::kProcessId;
    static constexpr const char* kDigits = "0123456789";

    // Old rings are looked for in one directory, and a process id is all the digits that stand there.
    static bool hidesProcessId(const std::string& pattern) {
        const std::string::size_type fileName = pattern.rfind('/') + 1;
        const std::string wrong = std::string(kDigits) + kProcessId;
        for (std::string::size_type i = pattern.find(kProcessId); i < pattern.size();
             i = pattern.find(kProcessId, i + 1)) {
            if (i < fileName || (i + 1 < pattern.size() && wrong.find(pattern[i + 1]) != std::string::npos)) {
                return true;
            }
        }
        return false;
    }

    FilePattern m_pattern;
};

// A new file in memory. As long as this lives, its lock says so to processes for which the process id means another
// one.
class MappedFile {
public:
    // Throws std::system_error, whose text names the file. Nothing is left behind then.
    MappedFile(const RingName& name, std::size_t size) : m_size(size) {
        create(name.pathFor(getpid()));
        try {
            reserve();
        } catch (const std::system_error&) {
            unlink(m_path.c_str());
            throw;
        }
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() { munmap(m_memory, m_size); }

    char* memory() const { return m_memory; }
    std::size_t size() const { return m_size; }

private:
    [[noreturn]] void fail(int error, const char* what) const {
        throw std::system_error(error, std::generic_category(), m_path + " " + what);
    }

    // What has the name already is left alone, whoever made it: the next one of NAME, NAME.1, NAME.2 is taken.
    void create(const std::string& path) {
        constexpr int kMostOfOneName = 1000;
        constexpr mode_t kDirectoryMode = 0755;
        const std::string directory = std::filesystem::path(path).parent_path();
        if (!directory.empty()) {
            mkdir(directory.c_str(), kDirectoryMode); // where it cannot be made, open says why
        }
        m_path = path;
        constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        for (int i = 1; !m_file.take(open(m_path.c_str(), kFlags, 0600)); ++i) {
            const int openErrno = errno;
            struct stat status = {};
            const bool isThere = openErrno == EEXIST && lstat(m_path.c_str(), &status) == 0;
            if (isThere && !S_ISREG(status.st_mode)) {
                fail(openErrno, S_ISLNK(status.st_mode) ? "is a symbolic link" : "is no file");
            }
            if (openErrno != EEXIST || i == kMostOfOneName) {
                fail(openErrno, "cannot be created");
            }
            m_path = path + "." + std::to_string(i);
        }
        flock(m_file.get(), LOCK_EX | LOCK_NB);
    }

    // Afterwards no page has to be found any more: a file system that fills up later ends no process with SIGBUS.
    void reserve() {
        int error = EINTR;
        while (error == EINTR) {
            error = posix_fallocate(m_file.get(), 0, static_cast<off_t>(m_size));
        }
        if (error != 0) {
            fail(error, "does not get its room");
        }
        void* const mapped = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
        if (mapped == MAP_FAILED) {
            fail(errno, "cannot be mapped");
        }
        m_memory = static_cast<char*>(mapped);
        volatile char* const pages = m_memory;
        constexpr std::size_t kSmallestPage = 4096;
        for (std::size_t i = 0; i < m_size; i += kSmallestPage) {
            pages[i] = 0;
        }
    }

    const std::size_t m_size;
    std::string m_path;
    Descriptor m_file;
    char* m_memory = nullptr;
};

// A ring that lies in the directory, made when `created` says.
struct OldRing {
    std::pair<std::int64_t, std::uint32_t> created;
    std::filesystem::path path;
};

// Whether a file is a ring of this user that nobody writes any more. Then says when it was made. Others, who may write
// into the directory, could lay rings there that never grow old.
inline bool isLeft(const std::filesystem::path& path, OldRing& ring) {
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd == -1) {
        return false;
    }
    struct stat status = {};
    const bool isOwn = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid();
    char begin[header::kSize] = {};
    const bool isRing = isOwn && pread(fd, begin, sizeof begin, 0) == static_cast<ssize_t>(sizeof begin) &&
                        std::memcmp(begin + header::kMagicAt, kMagic, kMagicSize) == 0 &&
                        load<std::uint32_t>(begin + header::kChecksumAt) == headerChecksum(begin);
    const bool isUnlocked = isRing && flock(fd, LOCK_EX | LOCK_NB) == 0; // never before its process has locked it
    ::close(fd);
    if (!isUnlocked) {
        return false;
    }
    ring.created = {load<std::int64_t>(begin + header::kSecondsAt),
                    load<std::uint32_t>(begin + header::kMicrosecondsAt)};
    ring.path = path;
    return true;
}

// Removes the rings of a pattern that nobody writes any more, but for the newest ones.
inline void removeOldRings(const RingName& name, std::size_t keep) {
    std::vector<OldRing> rings;
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::path(name.pathFor(getpid())).parent_path();
    for (std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error), end;
         !error && entry != end; entry.increment(error)) {
        OldRing ring;
        if (name.matches(entry->path().filename()) && isLeft(entry->path(), ring)) {
            rings.push_back(std::move(ring));
        }
    }
    std::sort(rings.begin(), rings.end(), [](const OldRing& a, const OldRing& b) { return a.created > b.created; });
    for (std::size_t i = keep; i < rings.size(); ++i) {
        unlink(rings[i].path.c_str());
    }
}

} // namespace
} // namespace recorder

#endif // SORREL_TARGETS_RECORDER_FILE_HPP
