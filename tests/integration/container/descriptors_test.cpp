// The descriptors of a container: what they are registered with, who inherits them, in which order they are closed.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

bool recordCloses = false;
std::vector<std::string> closes; // "close FD" and "rm_watch FD WATCH" while recording

class Descriptors : public ContainerFixture {
protected:
    Descriptors() { configure(""); }

    static bool isCloseOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

    // The sets' members as the kernel shows them, "DESCRIPTOR EVENTS DATA", numbers in hexadecimal.
    static std::vector<std::string> epollMembers(int fd) {
        std::vector<std::string> members;
        for (const std::string& line : descriptorInfo(fd)) {
            int member = -1;
            unsigned int events = 0;
            unsigned int data = 0;
            if (std::sscanf(line.c_str(), "tfd: %d events: %x data: %x", &member, &events, &data) == 3) {
                char text[64];
                std::snprintf(text, sizeof text, "%x %x %x", static_cast<unsigned int>(member), events, data);
                members.push_back(text);
            }
        }
        return members;
    }

    // A descriptor in the set: readable, level-triggered (the kernel adds errors and hang-ups), itself as the data.
    static std::string readable(int fd) {
        char text[64];
        const auto number = static_cast<unsigned int>(fd);
        std::snprintf(text, sizeof text, "%x 19 %x", number, number);
        return text;
    }
};

} // namespace

extern "C" int fakeClose(int fd) __asm__("close");
extern "C" int fakeClose(int fd) {
    if (recordCloses) {
        closes.push_back("close " + std::to_string(fd));
    }
    return static_cast<int>(syscall(SYS_close, fd));
}

extern "C" int fakeRemoveWatch(int fd, int watch) __asm__("inotify_rm_watch");
extern "C" int fakeRemoveWatch(int fd, int watch) {
    if (recordCloses) {
        closes.push_back("rm_watch " + std::to_string(fd) + " " + std::to_string(watch));
    }
    return static_cast<int>(syscall(SYS_inotify_rm_watch, fd, watch));
}

TEST_F(Descriptors, NoneOfThemIsInheritedByAProgramThatIsExecuted) {
    const auto before = openDescriptors();
    const OpenContainer container(directory(), true);
    int added = 0;
    for (const auto& descriptor : openDescriptors()) {
        if (before.count(descriptor.first) == 0) {
            ++added;
            EXPECT_TRUE(isCloseOnExec(descriptor.first)) << descriptor.second;
        }
    }
    EXPECT_EQ(added, 4);
}

TEST_F(Descriptors, TheConfigurationFileIsNotInheritedEither) {
    configure(targetLine("recording"));
    bool checked = false;
    journal::onEvent("create", [&](const PluginEvent&) {
        for (const auto& descriptor : openDescriptors()) {
            if (descriptor.second == defaultFile()) {
                checked = isCloseOnExec(descriptor.first);
            }
        }
    });
    const OpenContainer container(directory(), true);
    journal::onEvent("create", nullptr);
    EXPECT_TRUE(checked);
}

TEST_F(Descriptors, InotifyAndPipeAreInTheEpollSetForReadingWithThemselvesAsData) {
    const OpenContainer container(directory(), true);
    EXPECT_THAT(epollMembers(container.epollFd),
                testing::UnorderedElementsAre(readable(container.inotifyFd), readable(container.pipeFds[0])));
}

TEST_F(Descriptors, ThePipeBlocksAtBothEnds) {
    const OpenContainer container(directory(), true);
    EXPECT_EQ(fcntl(container.pipeFds[0], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(container.pipeFds[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Descriptors, WhenInotifyCannotBeAddedThePipeIsNotTried) {
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    const int inotify = std::exchange(container.inotifyFd, -1);
    EXPECT_EQ(container->init_epoll_evts(), -1);
    EXPECT_THAT(epollMembers(container.epollFd), IsEmpty());
    container.inotifyFd = inotify;
}

TEST_F(Descriptors, WhenThePipeCannotBeAddedThatIsAFailure) {
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    container->close_fd(container.pipeFds[0]);
    EXPECT_EQ(container->init_epoll_evts(), -1);
    EXPECT_THAT(epollMembers(container.epollFd), ElementsAre(readable(container.inotifyFd)));
}

TEST_F(Descriptors, TheyAreClosedEpollFirstThenTheWatchInotifyAndThePipe) {
    auto container = std::make_unique<OpenContainer>(directory(), false, nullptr);
    ASSERT_EQ((*container)->init_fds(), 0);
    const auto closeOf = [](int fd) { return "close " + std::to_string(fd); };
    const std::vector<std::string> expected = {
        closeOf(container->epollFd),
        "rm_watch " + std::to_string(container->inotifyFd) + " " + std::to_string(container->watchFd),
        closeOf(container->inotifyFd), closeOf(container->pipeFds[0]), closeOf(container->pipeFds[1])};
    recordCloses = true;
    container.reset();
    recordCloses = false;
    EXPECT_EQ(closes, expected);
}

TEST_F(Descriptors, ClosingSetsTheDescriptorToMinusOneAndIsDoneOnce) {
    OpenContainer container(directory(), false);
    const int opened = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int fd = opened;
    recordCloses = true;
    container->close_fd(fd);
    container->close_fd(fd);
    recordCloses = false;
    EXPECT_EQ(fd, -1);
    EXPECT_THAT(closes, ElementsAre("close " + std::to_string(opened)));
}

TEST_F(Descriptors, RemovingAWatchSetsItToMinusOneAndIsDoneOnce) {
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    recordCloses = true;
    container->close_wd(container.watchFd);
    container->close_wd(container.watchFd);
    recordCloses = false;
    EXPECT_EQ(container.watchFd, -1);
    EXPECT_THAT(closes, SizeIs(1));
    EXPECT_THAT(inotifyWatches(container.inotifyFd), IsEmpty());
}

TEST_F(Descriptors, AWatchThatTheKernelDoesNotKnowIsRemovedAllTheSame) {
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    int unknown = 4711;
    container->close_wd(unknown);
    EXPECT_EQ(unknown, -1);
}

TEST_F(Descriptors, AWatchWithoutInotifyIsLeftAsItIs) {
    OpenContainer container(directory(), false);
    int watch = 1;
    recordCloses = true;
    container->close_wd(watch);
    recordCloses = false;
    EXPECT_EQ(watch, 1);
    EXPECT_THAT(closes, IsEmpty());
}
