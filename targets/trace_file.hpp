// The file of a trace: a JSON array that is complete after each write.
#ifndef SORREL_TARGETS_TRACE_FILE_HPP
#define SORREL_TARGETS_TRACE_FILE_HPP

#include "descriptor.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class TraceFile {
public:
    TraceFile() = default;
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;
    ~TraceFile() = default;

    // Not any more when the process has closed its descriptors.
    bool isOpen() const { return m_file.isOpen(); }

    // Whether the file stays within a size with these events.
    bool hasRoom(const std::string& events, std::int64_t size) const {
        const std::size_t withTail = events.size() + kTail.size();
        return m_end + static_cast<std::int64_t>(blanksBefore(withTail) + withTail) <= size;
    }

    // Makes a new file, with its first events; a file that stands there becomes PATH.1. Returns 0 or the error number.
    int open(const std::string& path, std::string& events) {
        m_file.close();
        struct stat status {};
        if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            std::rename(path.c_str(), (path + ".1").c_str()); // what stays in the way is found below
        }
        if (!m_file.take(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640))) {
            return errno;
        }
        m_end = 0;
        const int error = append(events);
        if (error != 0) {
            unlink(path.c_str());
            m_file.close();
        }
        return error;
    }

    // Adds events, each of which stands behind ",\n", or nothing when that fails. Returns 0 or the error number.
    int append(std::string& events) {
        if (m_end == 0) {
            events.front() = '[';
        }
        events += kTail;
        events.insert(0, blanksBefore(events.size()), ' ');
        const int error = write(events);
        if (error != 0) {
            takeBack();
            return error;
        }
        m_end += static_cast<std::int64_t>(events.size() - kTail.size());
        return 0;
    }

private:
    static constexpr std::string_view kTail = "\n]\n";

    // The kernel writes a page after the other, and a process may be killed in between. So what fits into one is
    // written into one, behind so many blanks: the array then lacks its closing bracket at worst, which is allowed.
    std::size_t blanksBefore(std::size_t size) const {
        constexpr unsigned int kPage = 4096;
        const std::size_t room = kPage - static_cast<unsigned int>(m_end % kPage);
        return size > room && size <= kPage ? room : 0;
    }

    // From where the last event ends.
    int write(std::string_view text) const {
        for (off_t place = m_end; !text.empty();) {
            const ssize_t count = pwrite(m_file.get(), text.data(), text.size(), place);
            if (count <= 0) {
                return count == 0 ? EIO : errno;
            }
            place += count;
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        return 0;
    }

    // The tail needs no room that the file did not have before.
    void takeBack() const {
        if (ftruncate(m_file.get(), m_end + static_cast<off_t>(kTail.size())) == 0) {
            write(kTail);
        }
    }

    Descriptor m_file;
    std::int64_t m_end = 0; // of the last event
};

} // namespace

#endif // SORREL_TARGETS_TRACE_FILE_HPP
