// The container's descriptors: kept from other programs, and told apart from what others may have opened since.
#include <sorrel/log_target_container.hpp>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// All zero for a descriptor that is not open. Calls nothing that a forked child of a threaded process may not call.
template <typename Identity>
Identity identityOf(int fd) {
    Identity identity = {};
    struct stat status;
    if (fstat(fd, &status) == 0) {
        identity.device = status.st_dev;
        identity.inode = status.st_ino;
        char path[32] = "/proc/self/fd/";
        char* const end = path + sizeof path;
        *std::to_chars(path + std::strlen(path), end - 1, fd).ptr = '\0';
        if (readlink(path, identity.link, sizeof identity.link - 1) == -1) {
            identity.link[0] = '\0';
        }
    }
    return identity;
}

} // namespace

namespace sorrel {

void CLogTargetContainer::keepDescriptor(int fd, DescriptorIndex index) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    m_identities[index] = identityOf<DescriptorIdentity>(fd);
}

// A program may close all descriptors that it did not open itself, ours too, and the numbers then belong to others.
bool CLogTargetContainer::isOwnDescriptor(int fd, DescriptorIndex index) const {
    if (fd == -1) {
        return false;
    }
    const DescriptorIdentity& kept = m_identities[index];
    const DescriptorIdentity now = identityOf<DescriptorIdentity>(fd);
    return kept.inode == 0 ||
           (now.device == kept.device && now.inode == kept.inode && std::strcmp(now.link, kept.link) == 0);
}

void CLogTargetContainer::closeOwn(int& fd, DescriptorIndex index) {
    if (isOwnDescriptor(fd, index)) {
        close_fd(fd);
    }
    fd = -1;
}

void CLogTargetContainer::close_fd(int& fd) {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
}

} // namespace sorrel
