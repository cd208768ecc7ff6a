// What fails while a container sets up its event handling and its worker: the container works all the same, unwatched.
// Fakes stand in for what cannot be made to fail one by one.
#include "container_fixture.hpp"
#include "proc_self.hpp"
#include "replaced_new.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char kNoEventHandling[] =
    "logtarget-container: unable to initialize event-handling - not worker thread will be spawned";

bool failEpollCreate = false;
bool failInotifyInit = false;
bool failPipe = false; // the first one after inotify_init: sanitizers make pipes, too
bool isPipeNext = false;
int epollCtlCalls = 0;
int failingEpollCtlCall = 0;       // 0: none
bool failNewAfterEpollCtl = false; // the first allocation after both descriptors were added

class ContainerStartupFailures : public ContainerFixture {
protected:
    ContainerStartupFailures() { configure(targetLine("recording")); }

    // The container reads its configuration, reports this message at priority 3 as the last one, has no worker, and
    // works.
    void expectUnwatched(OpenContainer& container, const testing::Matcher<std::string>& message) {
        const SyslogRecord last = diagnostics().records().back();
        EXPECT_THAT(last.text, message);
        EXPECT_EQ(last.priority, 3);
        EXPECT_EQ(container.worker, nullptr);
        container.send("hello");
        EXPECT_THAT(journal::texts(), ElementsAre("hello"));
    }
};

bool isOpen(int fd) {
    return fd != -1 && fcntl(fd, F_GETFD) != -1;
}

} // namespace

extern "C" int fakeEpollCreate(int size) __asm__("epoll_create");
extern "C" int fakeEpollCreate(int /*size*/) {
    errno = EMFILE;
    return failEpollCreate ? -1 : epoll_create1(0);
}

extern "C" int fakeInotifyInit() __asm__("inotify_init");
extern "C" int fakeInotifyInit() {
    isPipeNext = true;
    errno = EMFILE;
    return failInotifyInit ? -1 : inotify_init1(0);
}

extern "C" int fakePipe(int* ends) __asm__("pipe");
extern "C" int fakePipe(int* ends) {
    errno = EMFILE;
    return std::exchange(isPipeNext, false) && failPipe ? -1 : pipe2(ends, 0);
}

extern "C" int fakeEpollCtl(int epollFd, int operation, int fd, epoll_event* event) __asm__("epoll_ctl");
extern "C" int fakeEpollCtl(int epollFd, int operation, int fd, epoll_event* event) {
    if (++epollCtlCalls == failingEpollCtlCall) {
        errno = ENOSPC;
        return -1;
    }
    replacedNew::failNext = failNewAfterEpollCtl && epollCtlCalls == 2;
    return static_cast<int>(syscall(SYS_epoll_ctl, epollFd, operation, fd, event));
}

TEST_F(ContainerStartupFailures, WithoutAnEpollDescriptorNothingIsOpen) {
    const auto before = openDescriptors();
    failEpollCreate = true;
    OpenContainer container(directory(), true);
    expectUnwatched(container, kNoEventHandling);
    EXPECT_EQ(container.epollFd, -1);
    EXPECT_EQ(container.inotifyFd, -1);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerStartupFailures, WithoutAnInotifyDescriptorEpollIsClosedAgain) {
    const auto before = openDescriptors();
    failInotifyInit = true;
    OpenContainer container(directory(), true);
    expectUnwatched(container, kNoEventHandling);
    EXPECT_EQ(container.epollFd, -1);
    EXPECT_EQ(container.inotifyFd, -1);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerStartupFailures, KeepsEpollOpenWhenTheFileCannotBeWatched) {
    const auto before = openDescriptors();
    {
        OpenContainer container(directory() + "/nowhere", false, nullptr);
        EXPECT_EQ(container->init_fds(), -1);
        EXPECT_TRUE(isOpen(container.epollFd));
        EXPECT_EQ(container.inotifyFd, -1);
        EXPECT_EQ(container.watchFd, -1);
        EXPECT_EQ(container.pipeFds[1], -1);
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerStartupFailures, WithoutAPipeTheWatchIsRemovedAndTheRestStaysOpen) {
    const auto before = openDescriptors();
    failPipe = true;
    {
        OpenContainer container(directory(), true);
        expectUnwatched(container, kNoEventHandling);
        EXPECT_TRUE(isOpen(container.epollFd));
        EXPECT_TRUE(isOpen(container.inotifyFd));
        EXPECT_THAT(inotifyWatches(container.inotifyFd), IsEmpty());
        EXPECT_EQ(container.watchFd, -1);
        EXPECT_EQ(container.pipeFds[0], -1);
        EXPECT_EQ(container.pipeFds[1], -1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerStartupFailures, AContainerThatCannotAddInotifyToEpollSaysSoAndWorks) {
    failingEpollCtlCall = 1;
    OpenContainer container(directory(), true);
    expectUnwatched(container, kNoEventHandling);
    EXPECT_EQ(epollCtlCalls, 1) << "the pipe is not tried any more";
    EXPECT_TRUE(isOpen(container.pipeFds[0])) << "left to the destructor";
}

TEST_F(ContainerStartupFailures, AContainerThatCannotAddThePipeToEpollSaysSoAndWorks) {
    failingEpollCtlCall = 2;
    OpenContainer container(directory(), true);
    expectUnwatched(container, kNoEventHandling);
}

TEST_F(ContainerStartupFailures, WithoutMemoryForTheThreadObjectThereIsNoWorker) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "not run: allocations cannot be made to fail with this sanitizer";
    }
    journal::onEvent("isSyslog", [](const PluginEvent&) { replacedNew::failNextNothrow = true; });
    OpenContainer container(directory(), true);
    journal::onEvent("isSyslog", nullptr);
    expectUnwatched(container,
                    "logtarget-container: unable to create worker thread - config-changes will not be monitored. "
                    "(errno=Cannot allocate memory)");
}

TEST_F(ContainerStartupFailures, AThreadThatCannotBeStartedIsReportedWithWhatWasCaught) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{3} << (sizeof(void*) * 8 - 2));
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    OpenContainer container(directory(), true);
    // Which errno the thread library leaves behind is not the same everywhere.
    expectUnwatched(container, AllOf(StartsWith("logtarget-container: unable to create worker thread: exception "
                                                "caught: Resource temporarily unavailable - errno="),
                                     Not(EndsWith("errno=Success"))));
    sigset_t mask;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &mask), 0);
    EXPECT_EQ(sigismember(&mask, SIGUSR2), 0) << "signals are blocked only while a thread is started";
}

TEST_F(ContainerStartupFailures, AContainerWithoutItsWorkerClosesWhatItOpened) {
    const auto before = openDescriptors();
    failingEpollCtlCall = 2;
    { const OpenContainer container(directory(), true); }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerStartupFailures, AnyOtherExceptionReachesTheCallerWithEverythingReleased) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "not run: allocations cannot be made to fail with this sanitizer";
    }
    const auto before = openDescriptors();
    failNewAfterEpollCtl = true;
    EXPECT_THROW(OpenContainer(directory(), true), std::bad_alloc);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(journal::lines().back(), "recording done");
    EXPECT_THAT(journal::texts(), IsEmpty());
}
