// A file system in which a test may own /etc, /run and /dev: a mount namespace of its own.
#include "private_system.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

void check(int rc, const std::string& what) {
    if (rc == -1) {
        throw std::system_error(errno, std::generic_category(), "no private system for this test: " + what);
    }
}

void writeFile(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    check(fd, "open " + path);
    const ssize_t written = write(fd, text.data(), text.size());
    close(fd);
    check(written == static_cast<ssize_t>(text.size()) ? 0 : -1, "write " + path);
}

// Who may not have a mount namespace of its own may still have one inside a user namespace, under the same ids.
void unshareMounts() {
    if (unshare(CLONE_NEWNS) == 0) {
        return;
    }
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    check(unshare(CLONE_NEWUSER | CLONE_NEWNS), "unshare (root or user namespaces are needed)");
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", user + " " + user + " 1");
    writeFile("/proc/self/gid_map", group + " " + group + " 1");
}

void mountEmpty(const std::string& directory) {
    check(mount("sorrel-test", directory.c_str(), "tmpfs", MS_NOSUID, "mode=0755"), "mount " + directory);
}

// Put together inside the new /etc, where nobody sees it, since its devices come from the old /dev.
void replaceDev() {
    const std::string staging = "/etc/dev";
    check(mkdir(staging.c_str(), 0755), "mkdir " + staging);
    mountEmpty(staging);
    for (const std::string name : {"null", "zero", "full", "random", "urandom"}) {
        const std::string node = staging + "/" + name;
        writeFile(node, "");
        check(mount(("/dev/" + name).c_str(), node.c_str(), nullptr, MS_BIND, nullptr), "bind /dev/" + name);
    }
    check(symlink("/proc/self/fd", (staging + "/fd").c_str()), "symlink fd");
    check(symlink("/proc/self/fd/0", (staging + "/stdin").c_str()), "symlink stdin");
    check(symlink("/proc/self/fd/1", (staging + "/stdout").c_str()), "symlink stdout");
    check(symlink("/proc/self/fd/2", (staging + "/stderr").c_str()), "symlink stderr");
    check(mount(staging.c_str(), "/dev", nullptr, MS_MOVE, nullptr), "move " + staging);
    check(rmdir(staging.c_str()), "rmdir " + staging);
}

} // namespace

void enterPrivateSystem() {
    unshareMounts();
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "make / private");
    mountEmpty("/etc");
    mountEmpty("/run");
    replaceDev();
}
