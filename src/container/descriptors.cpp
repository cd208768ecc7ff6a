// The container's descriptors: kept from other programs, and told apart from what others may have opened since.
#include <sorrel/log_target_container.hpp>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// False when it cannot be known. Calls nothing that a forked child of a threaded process may not call.
template <typename Identity>
bool identify(int fd, Identity& identity) {
    identity = {};
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return false;
    }
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    char path[32] = "/proc/self/fd/";
    char* const end = path + sizeof path;
    *std::to_chars(path + std::strlen(path), end - 1, fd).ptr = '\0';
    if (readlink(path, identity.link, sizeof identity.link - 1) == -1) {
        identity.link[0] = '\0';
    }
    return true;
}

bool mayBeSameLink(const char* left, const char* right) {
    return left[0] == '\0' || right[0] == '\0' || std::strcmp(left, right) == 0;
}

} // namespace

namespace sorrel {

void CLogTargetContainer::keepDescriptor(int fd, DescriptorIndex index) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    identify(fd, m_identities[index]);
}

// A program may close all descriptors that it did not open itself, ours too, and the numbers then belong to others.
// What cannot be told apart is taken for our own.
bool CLogTargetContainer::standsFor(int fd, const DescriptorIdentity& kept) {
    if (fd == -1) {
        return false;
    }
    DescriptorIdentity now;
    if (!identify(fd, now)) {
        return errno != EBADF;
    }
    return kept.inode == 0 ||
           (now.device == kept.device && now.inode == kept.inode && mayBeSameLink(now.link, kept.link));
}

bool CLogTargetContainer::isOwnDescriptor(int fd, DescriptorIndex index) const {
    return standsFor(fd, m_identities[index]);
}

// Each pipe has an inode of its own, and all epolls share one, as all inotifies do. So the pipe speaks for all four:
// when somebody else has closed an end of it, the numbers of epoll and inotify may belong to others of their kind.
bool CLogTargetContainer::isPipeLost() const {
    const auto isLost = [this](int fd, DescriptorIndex index) { return fd != -1 && !isOwnDescriptor(fd, index); };
    return isLost(m_pipeFds[0], PIPE_READ_END) || isLost(m_pipeFds[1], PIPE_WRITE_END);
}

// What is not our own keeps its number: a worker that could not be told to end still sees that it is lost.
void CLogTargetContainer::closeOwn(int& fd, DescriptorIndex index) {
    if (isOwnDescriptor(fd, index)) {
        close_fd(fd);
    }
}

void CLogTargetContainer::close_fd(int& fd) {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
}

} // namespace sorrel
