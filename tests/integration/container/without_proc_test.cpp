// A system in which /proc is not there: a descriptor's link text cannot be read, device and inode have to do.
#include "container_fixture.hpp"

#include <fcntl.h>
#include <stdexcept>
#include <sys/mount.h>

namespace {

class WithoutProc : public ContainerFixture {
protected:
    WithoutProc() {
        if (mount("sorrel-test", "/proc", "tmpfs", 0, nullptr) != 0) {
            throw std::runtime_error("cannot hide /proc");
        }
    }
    ~WithoutProc() override { umount("/proc"); }
};

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

} // namespace

TEST_F(WithoutProc, TheFileIsWatchedAndTheDescriptorsAreClosedInTheEnd) {
    configure("component=one,1\n");
    RecordingSink sink;
    std::vector<int> descriptors;
    {
        OpenContainer container(directory(), true, &sink);
        descriptors = {container.epollFd, container.inotifyFd, container.pipeFds[0], container.pipeFds[1]};
        configure("component=two,10\n");
        EXPECT_TRUE(sink.waitFor("two", "10"));
    }
    for (const int fd : descriptors) {
        EXPECT_FALSE(isOpen(fd)) << fd;
    }
}
