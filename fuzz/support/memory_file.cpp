// A file without a disk, for code that opens files by their path.
#include "support/memory_file.hpp"

#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void require(bool success, const char* call) {
    if (!success) {
        std::perror(call);
        std::abort();
    }
}

} // namespace

MemoryFile::MemoryFile() : m_fd(memfd_create("fuzz", MFD_CLOEXEC)), m_path("/proc/self/fd/" + std::to_string(m_fd)) {
    require(m_fd != -1, "memfd_create");
}

MemoryFile::~MemoryFile() {
    close(m_fd);
}

void MemoryFile::write(const std::string& content) {
    require(ftruncate(m_fd, 0) == 0, "ftruncate");
    require(pwrite(m_fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()), "pwrite");
}

std::string MemoryFile::read() const {
    const off_t size = lseek(m_fd, 0, SEEK_END);
    require(size != -1, "lseek");
    std::string content(static_cast<std::size_t>(size), '\0');
    require(pread(m_fd, &content[0], content.size(), 0) == size, "pread");
    return content;
}
