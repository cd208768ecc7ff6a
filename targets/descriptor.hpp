// A descriptor in a process that may close all its descriptors, as daemons do, and then use their numbers for something
// else.
#ifndef SORREL_TARGETS_DESCRIPTOR_HPP
#define SORREL_TARGETS_DESCRIPTOR_HPP

#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

class Descriptor {
public:
    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    // Takes what open() or socket() has returned; it must not hold another one. Returns whether that is a descriptor;
    // errno says why not.
    bool take(int fd) {
        m_fd = fd;
        return fd != -1 && fstat(fd, &m_status) == 0;
    }

    int get() const { return m_fd; }

    // As it was when the descriptor was taken.
    const struct stat& status() const { return m_status; }

    // Whether there is one, and it still is what was taken.
    bool isOpen() const {
        struct stat now = {};
        return m_fd != -1 && fstat(m_fd, &now) == 0 && now.st_dev == m_status.st_dev && now.st_ino == m_status.st_ino;
    }

    void swap(Descriptor& other) noexcept {
        std::swap(m_fd, other.m_fd);
        std::swap(m_status, other.m_status);
    }

    // Leaves alone what has got its number meanwhile.
    void close() {
        if (isOpen()) {
            ::close(m_fd);
        }
        m_fd = -1;
    }

private:
    int m_fd = -1;
    struct stat m_status = {};
};

} // namespace

#endif // SORREL_TARGETS_DESCRIPTOR_HPP
