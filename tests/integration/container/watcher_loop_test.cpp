// The worker's loop, run on the thread of the test: what it does with each notification and event.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kExit[] = "logtarget-container: got exit message - ending thread.";
constexpr char kChanged[] = "logtarget-container: sorrel configfile changed, triggering re-read.";
constexpr char kDropped[] = "logtarget-container: unable to read inotify event - dropped event.";
constexpr char kNoNotification[] = "logtarget-container: worker unable to receive notification - terminating thread.";

class WatcherLoop : public ContainerFixture {
protected:
    WatcherLoop() : m_container(directory(), false, nullptr) { configure(""); }

    OpenContainer& container() { return m_container; }

    void openDescriptors() {
        ASSERT_EQ(m_container->init_fds(), 0);
        ASSERT_EQ(m_container->init_epoll_evts(), 0);
    }

    // Puts the read end of a pipe that holds `bytes` in the place of the inotify descriptor.
    void openWithPipeForInotify(const std::string& bytes) {
        ASSERT_EQ(m_container->init_fds(), 0);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        ASSERT_EQ(dup2(ends[0], m_container.inotifyFd), m_container.inotifyFd);
        m_container.watchFd = -1;
        m_otherEnd = ends[1];
        close(ends[0]);
        ASSERT_EQ(m_container->init_epoll_evts(), 0);
    }

    void TearDown() override { m_container->close_fd(m_otherEnd); }

    void notify(int value) {
        m_container->notifyThread(static_cast<sorrel::CLogTargetContainer::thread_notification>(value));
    }

    // The messages of the loop, which has to end by itself.
    std::vector<std::string> run() {
        diagnostics().clear();
        EXPECT_EQ(m_container->threadEventLoop(), 0);
        return diagnostics().texts();
    }

    std::string reading() const {
        return "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"";
    }

private:
    OpenContainer m_container;
    int m_otherEnd = -1;
};

} // namespace

TEST_F(WatcherLoop, TheTerminateNotificationEndsIt) {
    openDescriptors();
    EXPECT_EQ(container()->threadNotifyTerminate(), 0);
    EXPECT_THAT(run(), ElementsAre(kExit));
    EXPECT_EQ(diagnostics().records().front().priority, 7);
}

TEST_F(WatcherLoop, ItIsWhatTheThreadRuns) {
    openDescriptors();
    container()->threadNotifyTerminate();
    EXPECT_EQ(container()->threadStartup(), 0);
    EXPECT_EQ(diagnostics().count(kExit), 1);
    container()->threadNotifyTerminate();
    sorrel::CLogTargetContainer::outerThreadStartup(&*container());
    EXPECT_EQ(diagnostics().count(kExit), 2);
}

TEST_F(WatcherLoop, OtherNotificationsAreIgnored) {
    openDescriptors();
    for (const int value : {2, 7, -1, 256, 0x7fffffff}) {
        notify(value);
    }
    notify(0);
    EXPECT_THAT(run(), ElementsAre(kExit));
    EXPECT_EQ(bytesWaiting(container().pipeFds[0]), 0) << "one at a time, all were read";
}

TEST_F(WatcherLoop, ANotificationIsFourBytesInTheOrderOfTheMachine) {
    openDescriptors();
    EXPECT_EQ(container()->threadNotfiyAppname(), 0);
    EXPECT_EQ(container()->threadNotifyTerminate(), 0);
    int values[3] = {-1, -1, -1};
    EXPECT_EQ(read(container().pipeFds[0], values, sizeof values), 8);
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 0);
}

TEST_F(WatcherLoop, KeepsTheSpellingOfTheNotificationAboutTheName) {
    openDescriptors();
    EXPECT_EQ(container()->threadNotfiyAppname(), 0);
    int value = -1;
    EXPECT_EQ(read(container().pipeFds[0], &value, sizeof value), 4);
    EXPECT_EQ(value, sorrel::CLogTargetContainer::THREAD_NOTIFICATION_APPNAME);
}

TEST_F(WatcherLoop, AnAppnameNotificationWithoutAFileOfTheApplicationDoesNothing) {
    openDescriptors();
    container().appname = "player";
    notify(1);
    notify(0);
    EXPECT_THAT(run(), ElementsAre(kExit));
}

TEST_F(WatcherLoop, ATerminateNotificationThatComesFirstLeavesTheEventOfTheFileUnhandled) {
    openDescriptors();
    notify(0);
    files().append("sorrel.cfg", "");
    EXPECT_THAT(run(), ElementsAre(kExit));
    EXPECT_GT(bytesWaiting(container().inotifyFd), 0);
}

TEST_F(WatcherLoop, AnEventOfTheFileThatComesFirstIsHandledBeforeTheNotification) {
    openDescriptors();
    files().append("sorrel.cfg", "");
    notify(0);
    EXPECT_THAT(run(), ElementsAre(kChanged, reading(), kExit));
}

TEST_F(WatcherLoop, EventsAreReadOneAtATime) {
    openDescriptors();
    const std::string ignored =
        "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x8000, watch-fd=" +
        std::to_string(container().watchFd) + ")";
    files().append("sorrel.cfg", "");
    std::filesystem::remove(defaultFile());
    ASSERT_EQ(bytesWaiting(container().inotifyFd), 32);
    notify(2);
    diagnostics().clear();
    std::thread loop([this] { container()->threadEventLoop(); });
    EXPECT_TRUE(diagnostics().waitFor(ignored));
    notify(0);
    loop.join();
    EXPECT_THAT(diagnostics().texts(),
                ElementsAre(kChanged, reading(), "cfread: unable to open " + defaultFile(),
                            "unable to read sorrel-config \"" + defaultFile() + "\" - giving up.", ignored, kExit));
}

TEST_F(WatcherLoop, AnEventOfAnotherDescriptorIsIgnored) {
    openDescriptors();
    int other = eventfd(1, EFD_CLOEXEC);
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLET;
    event.data.fd = other;
    ASSERT_EQ(epoll_ctl(container().epollFd, EPOLL_CTL_ADD, other, &event), 0);
    notify(0);
    EXPECT_THAT(run(), ElementsAre(kExit));
    container()->close_fd(other);
}

TEST_F(WatcherLoop, AFailingEpollEndsItWithAMessage) {
    openDescriptors();
    container()->close_fd(container().epollFd);
    EXPECT_THAT(run(), ElementsAre("logtarget-container: epoll failed with errno=Bad file descriptor - terminating "
                                   "watcher thread."));
    EXPECT_EQ(diagnostics().records().front().priority, 3);
}

TEST_F(WatcherLoop, AShortEventIsDropped) {
    openWithPipeForInotify(std::string(8, '\0'));
    std::thread loop([this] { container()->threadEventLoop(); });
    EXPECT_TRUE(diagnostics().waitFor(kDropped));
    notify(0);
    loop.join();
    EXPECT_THAT(diagnostics().texts(), ElementsAre(kDropped, kExit));
    EXPECT_EQ(diagnostics().records().front().priority, 3);
}

TEST_F(WatcherLoop, AShortNotificationEndsIt) {
    openDescriptors();
    ASSERT_EQ(write(container().pipeFds[1], "xy", 2), 2);
    EXPECT_THAT(run(), ElementsAre(kNoNotification));
    EXPECT_EQ(diagnostics().records().front().priority, 3);
}

TEST_F(WatcherLoop, APipeThatIsClosedEndsIt) {
    openDescriptors();
    container()->close_fd(container().pipeFds[1]);
    EXPECT_THAT(run(), ElementsAre(kNoNotification));
}

TEST_F(WatcherLoop, ADirectoryInPlaceOfTheFileHasItsEventsTakenOutAtOnce) {
    std::filesystem::remove(defaultFile());
    std::filesystem::create_directory(defaultFile());
    openDescriptors();
    for (const std::string name : {"a", "a-name-that-is-longer-than-a-header", "c"}) {
        files().write("sorrel.cfg/" + name, "");
    }
    notify(0);
    EXPECT_THAT(run(), ElementsAre(kDropped, kExit));
    EXPECT_EQ(bytesWaiting(container().inotifyFd), 0);
}
