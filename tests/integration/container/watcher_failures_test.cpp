// What goes wrong between a container and its worker: it is reported, and the container works on.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using testing::ElementsAre;

namespace {

class WatcherFailures : public ContainerFixture {
protected:
    WatcherFailures() { configure(targetLine("recording")); }

    // After its worker has ended by itself: the container works, notifies nobody successfully, and is destroyed.
    void expectWorksWithoutItsWorker(OpenContainer& container) {
        EXPECT_NE(container.worker, nullptr) << "it is still to be joined";
        container->setAppname("player");
        container.send("hello");
        EXPECT_THAT(journal::texts(), ElementsAre("hello"));
        EXPECT_FALSE(diagnostics().has("logtarget-container: unable to notify thread about a changed appname"));
    }

    // Notifies through this descriptor and expects it to fail with this text of errno.
    void expectCannotNotify(int fd, int errnoBefore, const std::string& errorText) {
        OpenContainer container(directory(), false);
        container.pipeFds[1] = fd;
        errno = errnoBefore;
        EXPECT_EQ(container->notifyThread(sorrel::CLogTargetContainer::THREAD_NOTIFICATION_APPNAME), -1);
        EXPECT_EQ(diagnostics().texts().back(),
                  "logtarget-container: unable to write to pipe (notify) - errno=" + errorText);
        EXPECT_EQ(diagnostics().records().back().priority, 3);
    }
};

} // namespace

TEST_F(WatcherFailures, WithoutAPipeThereIsNobodyToNotify) {
    OpenContainer container(directory(), false);
    EXPECT_EQ(container->threadNotfiyAppname(), -1);
    EXPECT_EQ(container->threadNotifyTerminate(), -1);
    EXPECT_THAT(diagnostics().texts(), ElementsAre("logtarget-container: invalid pipe-fd (notify)",
                                                   "logtarget-container: invalid pipe-fd (notify)"));
    EXPECT_EQ(diagnostics().records().front().priority, 3);
}

TEST_F(WatcherFailures, ANotificationThatCannotBeWrittenIsReported) {
    expectCannotNotify(open("/dev/full", O_WRONLY | O_CLOEXEC), 0, "No space left on device");
}

TEST_F(WatcherFailures, ANotificationThatIsWrittenInPartIsReported) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit room = {};
    getrlimit(RLIMIT_FSIZE, &room);
    const rlimit before = room;
    room.rlim_cur = 2;
    setrlimit(RLIMIT_FSIZE, &room);
    expectCannotNotify(open(files().file("pipe").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), EBUSY,
                       "Device or resource busy");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(files().read("pipe").size(), 2U);
}

TEST_F(WatcherFailures, ANameThatTheWorkerCannotBeToldIsSetAllTheSame) {
    OpenContainer container(directory(), false);
    container.pipeFds[1] = open("/dev/full", O_WRONLY | O_CLOEXEC);
    container->setAppname("player");
    EXPECT_EQ(container.appname, "player");
    EXPECT_EQ(journal::lines().back(), "recording appname player");
    EXPECT_EQ(diagnostics().texts().back(), "logtarget-container: unable to notify thread about a changed appname");
}

TEST_F(WatcherFailures, AWorkerThatCannotReadItsNotificationEndsAndIsJoined) {
    const auto threads = threadIds();
    {
        OpenContainer container(directory(), true);
        ASSERT_EQ(write(container.pipeFds[1], "xy", 2), 2);
        EXPECT_TRUE(
            diagnostics().waitFor("logtarget-container: worker unable to receive notification - terminating thread."));
        EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; }));
        expectWorksWithoutItsWorker(container);
    }
    EXPECT_FALSE(diagnostics().has("logtarget-container: got exit message - ending thread."));
    EXPECT_EQ(journal::lines().back(), "recording done");
}

TEST_F(WatcherFailures, AWorkerWhoseEpollFailsEndsAndIsJoined) {
    const auto threads = threadIds();
    {
        OpenContainer container(directory(), true);
        const int noEpoll = open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(dup3(noEpoll, container.epollFd, O_CLOEXEC), container.epollFd);
        close(noEpoll);
        files().append("sorrel.cfg", ""); // wakes it; the next wait meets the wrong descriptor
        EXPECT_TRUE(diagnostics().waitFor(
            "logtarget-container: epoll failed with errno=Invalid argument - terminating watcher thread."));
        EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; }));
        expectWorksWithoutItsWorker(container);
    }
    EXPECT_EQ(journal::lines().back(), "recording done");
}

TEST_F(WatcherFailures, AfterTheWorkerHasEndedNothingIsReRead) {
    OpenContainer container(directory(), true);
    ASSERT_EQ(write(container.pipeFds[1], "xy", 2), 2);
    EXPECT_TRUE(
        diagnostics().waitFor("logtarget-container: worker unable to receive notification - terminating thread."));
    files().append("sorrel.cfg", "");
    EXPECT_GT(bytesWaiting(container.inotifyFd), 0);
    EXPECT_EQ(workerRereads(), 0);
}
