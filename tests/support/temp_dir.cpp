// A directory of a test's own.
#include "temp_dir.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string makeDirectory() {
    const char* parent = std::getenv("TMPDIR");
    std::string path = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/sorrel-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        fail("mkdtemp " + path);
    }
    return path;
}

void writeAtOnce(const std::string& path, const std::string& text, int flags) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644);
    if (fd == -1) {
        fail("open " + path);
    }
    const ssize_t written = ::write(fd, text.data(), text.size());
    close(fd);
    if (written != static_cast<ssize_t>(text.size())) {
        fail("write " + path);
    }
}

} // namespace

TempDir::TempDir() : m_path(makeDirectory()), m_owner(getpid()) {}

TempDir::~TempDir() {
    if (m_owner == getpid()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
}

std::string TempDir::file(const std::string& name) const {
    return m_path + "/" + name;
}

void TempDir::write(const std::string& name, const std::string& text) const {
    writeAtOnce(file(name), text, O_TRUNC);
}

void TempDir::append(const std::string& name, const std::string& text) const {
    writeAtOnce(file(name), text, O_APPEND);
}

std::string TempDir::read(const std::string& name) const {
    std::ifstream stream(file(name), std::ios::binary);
    if (!stream) {
        fail("open " + file(name));
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}
