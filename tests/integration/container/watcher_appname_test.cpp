// The watch follows the application's name: to its file, from one such file to the next, and never back.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class WatcherAppname : public ContainerFixture {
protected:
    WatcherAppname() { configure(""); }

    OpenContainer& watching() {
        m_container.emplace(directory(), true, &m_sink);
        EXPECT_NE(m_container->worker, nullptr);
        return *m_container;
    }

    // Names the application and waits until the worker has done what it does then.
    void setName(const std::string& name) {
        (*m_container)->setAppname(name);
        EXPECT_TRUE(waitUntilHandled(*m_container));
    }

    // The one file that is watched.
    void expectWatched(const std::string& path) {
        struct stat status = {};
        ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
        const std::vector<InotifyWatch> watches = inotifyWatches(m_container->inotifyFd);
        ASSERT_THAT(watches, SizeIs(1));
        EXPECT_EQ(watches[0].inode, status.st_ino) << path;
        EXPECT_EQ(watches[0].mask, 0x208U);
    }

    static std::string watchingMessage(const std::string& name) {
        return "logtarget-container: Watching application-specific config-file \"" + name + "\" for changes";
    }

    static std::string removingMessage(int watch) {
        return "logtarget-container: removing old watch-descriptor " + std::to_string(watch);
    }

    RecordingSink& sink() { return m_sink; }

private:
    RecordingSink m_sink;
    std::optional<OpenContainer> m_container;
};

} // namespace

TEST_F(WatcherAppname, TheWatchMovesToTheFileOfTheApplication) {
    configureApp("player", "component=net,1\n");
    const int watch = watching().watchFd;
    setName("player");
    expectWatched(appFile("player"));
    EXPECT_TRUE(diagnostics().waitFor(watchingMessage("player")));
    EXPECT_EQ(diagnostics().count(removingMessage(watch)), 1);
    EXPECT_EQ(diagnostics().count("logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x8000, "
                                  "watch-fd=" +
                                  std::to_string(watch) + ")"),
              1);
    configureApp("player", "component=net,11\n");
    EXPECT_TRUE(sink().waitFor("net", "11"));
}

TEST_F(WatcherAppname, KeepsTheNameInsteadOfThePathInTheMessage) {
    configureApp("player", "");
    watching();
    setName("player");
    EXPECT_TRUE(
        diagnostics().has("logtarget-container: Watching application-specific config-file \"player\" for changes"));
}

TEST_F(WatcherAppname, TheMessagesOfAMoveAreForDebugging) {
    configureApp("player", "");
    const int watch = watching().watchFd;
    setName("player");
    for (const SyslogRecord& record : diagnostics().records()) {
        if (record.text == watchingMessage("player") || record.text == removingMessage(watch)) {
            EXPECT_EQ(record.priority, 7);
        }
    }
}

TEST_F(WatcherAppname, TheDefaultFileIsNotWatchedAnyMore) {
    configureApp("player", "");
    OpenContainer& container = watching();
    setName("player");
    diagnostics().clear();
    configure("component=net,1\n");
    std::filesystem::remove(defaultFile());
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(WatcherAppname, MovingTheWatchReReadsNothing) {
    configureApp("player", "");
    watching();
    setName("player");
    EXPECT_EQ(readsOf(appFile("player")), 1) << "by setAppname itself";
    EXPECT_EQ(workerRereads(), 0);
}

TEST_F(WatcherAppname, WithoutAFileOfTheApplicationTheWatchStaysInSilence) {
    OpenContainer& container = watching();
    diagnostics().clear();
    setName("player");
    expectWatched(defaultFile());
    EXPECT_THAT(diagnostics().texts(),
                ElementsAre("logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\""));
    configure("component=net,1\n");
    EXPECT_TRUE(waitForWorkerRereads(container, 1));
}

TEST_F(WatcherAppname, AFileOfTheApplicationThatAppearsLaterIsNotWatched) {
    OpenContainer& container = watching();
    setName("player");
    configureApp("player", "component=net,1\n");
    setName("player"); // does nothing: it is the same name
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(sink().levels(), IsEmpty());
    expectWatched(defaultFile());
    configure("");
    EXPECT_TRUE(sink().waitFor("net", "1")) << "it is read, though, when the watched file changes";
}

TEST_F(WatcherAppname, TheWatchMovesFromOneFileOfAnApplicationToTheNext) {
    configureApp("player", "");
    configureApp("tuner", "");
    watching();
    setName("player");
    setName("tuner");
    expectWatched(appFile("tuner"));
    configureApp("tuner", "component=net,11\n");
    EXPECT_TRUE(sink().waitFor("net", "11"));
    setName("player");
    expectWatched(appFile("player"));
}

TEST_F(WatcherAppname, TheWatchNeverMovesBackToTheDefaultFile) {
    configureApp("player", "");
    OpenContainer& container = watching();
    setName("player");
    setName("another");
    expectWatched(appFile("player"));
    setName("");
    expectWatched(appFile("player"));
    diagnostics().clear();
    configure("component=net,1\n");
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    configureApp("player", "");
    EXPECT_TRUE(sink().waitFor("net", "1")) << "the default file is read when the last application's file changes";
}

TEST_F(WatcherAppname, KeepsADeadWatchWhereItIs) {
    configureApp("player", "");
    configureApp("tuner", "");
    OpenContainer& container = watching();
    const int watch = container.watchFd;
    std::filesystem::remove(defaultFile());
    EXPECT_TRUE(waitUntilHandled(container));
    const std::string message = "logtarget-container: Unable remove old inotify watch - errno=Invalid argument";
    setName("player");
    EXPECT_EQ(diagnostics().texts().back(), message);
    EXPECT_EQ(diagnostics().records().back().priority, 3);
    setName("tuner");
    EXPECT_EQ(diagnostics().count(message), 2);
    EXPECT_EQ(diagnostics().count(removingMessage(watch)), 2) << "the old descriptor is kept";
    EXPECT_THAT(inotifyWatches(container.inotifyFd), IsEmpty());
}

TEST_F(WatcherAppname, WithoutAWatchOrInotifyNothingMoves) {
    configureApp("player", "");
    OpenContainer container(directory(), false);
    container.appname = "player";
    ASSERT_EQ(container->init_fds(), 0);
    const int watch = std::exchange(container.watchFd, -1);
    container->onAppnameChanged();
    EXPECT_EQ(container.watchFd, -1);
    container.watchFd = watch;
    const int inotify = std::exchange(container.inotifyFd, -1);
    container->onAppnameChanged();
    EXPECT_EQ(container.watchFd, watch);
    container.inotifyFd = inotify;
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    EXPECT_THAT(inotifyWatches(inotify), SizeIs(1));
}

TEST_F(WatcherAppname, TheWorkerMovesTheWatchWithoutTheLock) {
    configureApp("player", "");
    OpenContainer& container = watching();
    container->lock();
    container->setAppname("player");
    EXPECT_TRUE(diagnostics().waitFor(watchingMessage("player")));
    container->unlock();
}

// The worker may still be moving the watch for the first name when the second is stored.
TEST_F(WatcherAppname, NamesThatFollowEachOtherQuicklyLeaveTheWatchAtTheLast) {
    const std::string first(40, 'a');
    const std::string last(60, 'b');
    configureApp(first, "");
    configureApp(last, "");
    OpenContainer& container = watching();
    for (int i = 0; i < 50; ++i) {
        container->setAppname(first);
        container->setAppname(last);
    }
    EXPECT_TRUE(waitUntilHandled(container));
    expectWatched(appFile(last));
}
