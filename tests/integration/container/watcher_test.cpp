// The worker watches the file that is in use, and re-reads it when it is rewritten. Real files, real events.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

class Watcher : public ContainerFixture {
protected:
    // A watching container whose first read is done and out of the records.
    OpenContainer& watching(const std::string& text = "") {
        configure(text);
        m_container.emplace(directory(), true, &m_sink);
        EXPECT_NE(m_container->worker, nullptr);
        diagnostics().clear();
        journal::clear();
        return *m_container;
    }

    // Ends the container, which deals with what was waiting for its worker first.
    void endContainer() {
        waitUntilHandled(*m_container);
        m_container.reset();
    }

    RecordingSink& sink() { return m_sink; }

    static std::string ignoredMessage(int watch) {
        return "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x8000, watch-fd=" +
               std::to_string(watch) + ")";
    }

    // After the file has lost its watch: one message said so, nothing was re-read, and nothing will be.
    void expectUnwatched(int lostWatch) {
        EXPECT_TRUE(diagnostics().waitFor(ignoredMessage(lostWatch)));
        configure(targetLine("recording"));
        files().append("sorrel.cfg", "component=net,1\n");
        endContainer();
        EXPECT_THAT(diagnostics().texts(),
                    ElementsAre(ignoredMessage(lostWatch), "logtarget-container: got exit message - ending thread."));
        EXPECT_EQ(diagnostics().records().front().priority, 7);
        EXPECT_THAT(journal::events(), IsEmpty());
    }

private:
    RecordingSink m_sink;
    std::optional<OpenContainer> m_container;
};

std::uint64_t inodeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

TEST_F(Watcher, KeepsItsWatchOnClosedWritersAndDeletionsExactly) {
    const std::vector<InotifyWatch> watches = inotifyWatches(watching().inotifyFd);
    ASSERT_THAT(watches, SizeIs(1));
    EXPECT_EQ(watches[0].mask, 0x208U);
    EXPECT_EQ(watches[0].inode, inodeOf(defaultFile()));
}

TEST_F(Watcher, RewritingTheFileInPlaceReReadsItOnTheWorker) {
    watching();
    configure(targetLine("recording") + "component=net,11\n");
    EXPECT_TRUE(sink().waitFor("net", "11"));
    ASSERT_THAT(journal::ofKind("create"), SizeIs(1));
    EXPECT_NE(journal::ofKind("create")[0].thread, std::this_thread::get_id());
    EXPECT_EQ(diagnostics().texts()[0], "logtarget-container: sorrel configfile changed, triggering re-read.");
    EXPECT_EQ(diagnostics().records()[0].priority, 7);
    EXPECT_EQ(diagnostics().texts()[1],
              "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"");
}

TEST_F(Watcher, EachCloseOfAWriterIsOneReRead) {
    OpenContainer& container = watching();
    for (int i = 1; i <= 5; ++i) {
        configure("component=net,1\n");
        EXPECT_TRUE(waitForWorkerRereads(container, i));
    }
    endContainer();
    EXPECT_EQ(workerRereads(), 5);
    EXPECT_THAT(sink().levels(), SizeIs(5));
}

TEST_F(Watcher, AFileIsReReadOnlyWhenItsWriterCloses) {
    OpenContainer& container = watching();
    {
        std::ofstream writer(defaultFile(), std::ios::app);
        writer << "component=net,11\n" << std::flush;
        EXPECT_TRUE(waitUntilHandled(container));
        EXPECT_EQ(workerRereads(), 0);
    }
    EXPECT_TRUE(sink().waitFor("net", "11"));
}

TEST_F(Watcher, AWriterThatWroteNothingCountsToo) {
    OpenContainer& container = watching();
    files().append("sorrel.cfg", "");
    EXPECT_TRUE(waitForWorkerRereads(container, 1));
}

TEST_F(Watcher, ReadingTheFileIsNoChange) {
    OpenContainer& container = watching("component=net,1\n");
    EXPECT_EQ(files().read("sorrel.cfg"), "component=net,1\n");
    std::filesystem::permissions(defaultFile(), std::filesystem::perms::owner_all);
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(Watcher, QuickRewritesAreFollowedByAReReadAfterTheLast) {
    watching();
    configure("component=net,1\n");
    configure("component=net,10\n");
    configure("component=net,11\n");
    EXPECT_TRUE(sink().waitFor("net", "11"));
    endContainer();
    EXPECT_THAT(sink().levels().back(), Pair("net", "11"));
    EXPECT_LE(workerRereads(), 3);
}

TEST_F(Watcher, ABrokenFileIsStillWatched) {
    OpenContainer& container = watching(targetLine("recording"));
    configure("component=net,1");
    EXPECT_TRUE(waitForWorkerRereads(container, 1));
    EXPECT_TRUE(diagnostics().has("unable to read sorrel-config \"" + defaultFile() + "\" - giving up."));
    configure("component=net,11\n");
    EXPECT_TRUE(sink().waitFor("net", "11"));
}

TEST_F(Watcher, RenamingANewFileOverTheWatchedOneLeavesItUnwatchedAfterOneMessage) {
    const int watch = watching().watchFd;
    files().write("new.cfg", targetLine("recording"));
    std::filesystem::rename(files().file("new.cfg"), defaultFile());
    expectUnwatched(watch);
}

TEST_F(Watcher, DeletingTheWatchedFileLeavesItUnwatchedAfterOneMessageAndReReadsNothing) {
    const int watch = watching().watchFd;
    std::filesystem::remove(defaultFile());
    expectUnwatched(watch);
}

TEST_F(Watcher, AFileThatIsRenamedAwayIsStillWatchedUnderItsNewName) {
    OpenContainer& container = watching();
    std::filesystem::rename(defaultFile(), files().file("old.cfg"));
    configure("component=net,1\n");
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_EQ(workerRereads(), 0) << "the new file is not watched";
    files().append("old.cfg", "");
    EXPECT_TRUE(sink().waitFor("net", "1")) << "the old one is, and the new one is read then";
}

TEST_F(Watcher, ADirectoryOfThatNameDoesNotKeepTheWorkerBusy) {
    constexpr int kFiles = 20;
    std::filesystem::create_directory(defaultFile());
    OpenContainer container(directory(), true);
    ASSERT_NE(container.worker, nullptr);
    for (int i = 0; i < kFiles; ++i) {
        files().write("sorrel.cfg/" + std::to_string(i), "");
    }
    EXPECT_TRUE(waitUntilHandled(container)) << "the events are taken out";
    const std::string dropped = "logtarget-container: unable to read inotify event - dropped event.";
    EXPECT_GE(diagnostics().count(dropped), 1);
    EXPECT_LE(diagnostics().count(dropped), kFiles);
    EXPECT_EQ(workerRereads(), 0);
}

TEST_F(Watcher, ADirectoryOfThatNameDoesNotKeepTheWorkerFromEnding) {
    std::filesystem::create_directory(defaultFile());
    {
        OpenContainer container(directory(), true);
        files().write("sorrel.cfg/x", "");
    }
    EXPECT_TRUE(diagnostics().has("logtarget-container: got exit message - ending thread."));
}

TEST_F(Watcher, TheEntryOfTheThreadDoesNothingForNull) {
    sorrel::CLogTargetContainer::outerThreadStartup(nullptr);
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}
