// What befalls a watched file in the field: it is truncated first, changed while the queue of events overflows, written
// to a full disk.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::size_t targetCount(OpenContainer& container) {
    const std::lock_guard<sorrel::CLogTargetContainer> lock(*container);
    return container.targets.size();
}

class WatcherScenarios : public ContainerFixture {
protected:
    // A container that has loaded the target "recording", and whose first read is out of the records.
    OpenContainer& watching() {
        configure(targetLine("recording"));
        m_container.emplace(directory(), true, &m_sink);
        EXPECT_NE(m_container->worker, nullptr);
        diagnostics().clear();
        journal::clear();
        return *m_container;
    }

    RecordingSink& sink() { return m_sink; }

private:
    RecordingSink m_sink;
    std::optional<OpenContainer> m_container;
};

// The events that an inotify descriptor holds before further ones are dropped.
int queueLength() {
    int length = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> length;
    return length;
}

// Holds the thread that creates the target "recording_b" until it is let go.
class HeldCreation {
public:
    HeldCreation() {
        journal::onEvent("create", [this](const PluginEvent&) {
            m_reached.set_value();
            m_letGo.get_future().wait();
        });
    }
    HeldCreation(const HeldCreation&) = delete;
    HeldCreation& operator=(const HeldCreation&) = delete;
    ~HeldCreation() { journal::onEvent("create", nullptr); }

    bool waitUntilReached() {
        return m_reached.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }
    void letGo() { m_letGo.set_value(); }

private:
    std::promise<void> m_reached;
    std::promise<void> m_letGo;
};

} // namespace

TEST_F(WatcherScenarios, TruncatingTheFileAndThenWritingItUnloadsTheTargetAndLoadsItAgain) {
    OpenContainer& container = watching();
    ASSERT_EQ(truncate(defaultFile().c_str(), 0), 0);
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_EQ(workerRereads(), 0) << "nobody closed the file";
    files().append("sorrel.cfg", "");
    EXPECT_TRUE(waitForWorkerRereads(container, 1));
    EXPECT_EQ(targetCount(container), 0U);
    files().append("sorrel.cfg", targetLine("recording"));
    EXPECT_TRUE(waitForWorkerRereads(container, 2));
    EXPECT_EQ(targetCount(container), 1U);
    EXPECT_THAT(journal::ofKind("create"), SizeIs(1));
}

TEST_F(WatcherScenarios, AWriterThatTruncatesAndWritesBeforeItClosesIsOneReReadOfTheWholeText) {
    OpenContainer& container = watching();
    {
        std::ofstream writer(defaultFile(), std::ios::trunc);
        EXPECT_TRUE(waitUntilHandled(container));
        EXPECT_EQ(targetCount(container), 1U) << "the empty file was not read";
        writer << targetLine("recording") << "component=net,11\n";
    }
    EXPECT_TRUE(waitForWorkerRereads(container, 1));
    EXPECT_THAT(sink().levels(), ElementsAre(testing::Pair("net", "11")));
    EXPECT_THAT(journal::ofKind("destroy"), IsEmpty());
}

// A file that was being read when its event was dropped is read again, because the overflow itself is an event.
TEST_F(WatcherScenarios, AnOverflowOfTheQueueIsAReRead) {
    OpenContainer& container = watching();
    files().write("other", "");
    const int length = queueLength();
    ASSERT_GT(length, 0);
    HeldCreation held;
    configure(targetLine("recording") + targetLine("recording_b"));
    ASSERT_TRUE(held.waitUntilReached());
    for (int i = 0; i <= length; ++i) { // each watch that goes is an event, none of which causes a re-read
        const int watch = inotify_add_watch(container.inotifyFd, files().file("other").c_str(), IN_CLOSE_WRITE);
        ASSERT_EQ(inotify_rm_watch(container.inotifyFd, watch), 0);
    }
    const int full = bytesWaiting(container.inotifyFd);
    configure(targetLine("recording") + "component=net,11\n");
    EXPECT_EQ(bytesWaiting(container.inotifyFd), full) << "there is room for the event of this change";
    held.letGo();
    EXPECT_TRUE(sink().waitFor("net", "11"));
    EXPECT_TRUE(waitForWorkerRereads(container, 2));
    EXPECT_EQ(workerRereads(), 2) << "one for each of the first change and the overflow";
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
    configure(targetLine("recording") + "component=net,111\n");
    EXPECT_TRUE(sink().waitFor("net", "111")) << "the watch is as before";
}

namespace {

// A small file system in a directory, which can be filled to the last page.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& directory) : m_directory(directory), m_filler(directory + "/filler") {
        EXPECT_EQ(mkdir(directory.c_str(), 0755), 0);
        EXPECT_EQ(mount("sorrel-test", directory.c_str(), "tmpfs", MS_NOSUID, "size=64k"), 0) << strerror(errno);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() { umount2(m_directory.c_str(), MNT_DETACH); }

    void fill() const {
        const int fd = open(m_filler.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        const std::string page(kPageSize, 'x');
        while (write(fd, page.data(), page.size()) > 0) {
        }
        EXPECT_EQ(errno, ENOSPC);
        close(fd);
    }

    void empty() const { EXPECT_EQ(truncate(m_filler.c_str(), 0), 0); }

private:
    static constexpr std::size_t kPageSize = 4096;

    const std::string m_directory;
    const std::string m_filler;
};

class WatcherOnAFullDisk : public ContainerFixture {
protected:
    WatcherOnAFullDisk() {
        writeAsFarAsItGoes(targetLine("recording"));
        m_container.emplace(m_path, true, &m_sink);
        EXPECT_EQ(targetCount(*m_container), 1U);
    }

    // A writer as it is met in the field: it truncates, writes, and does not look at the result.
    void writeAsFarAsItGoes(
        const std::string& text, const std::function<void()>& beforeWriting = [] {}) const {
        const int fd = open(file().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        beforeWriting();
        EXPECT_LE(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(fd);
    }

    // With room again, the next change is read as ever.
    void expectAliveWithRoom() {
        m_disk.empty();
        writeAsFarAsItGoes(targetLine("recording") + targetLine("recording_b") + "component=net,101\n");
        EXPECT_TRUE(m_sink.waitFor("net", "101"));
        EXPECT_TRUE(waitUntilHandled(*m_container));
        EXPECT_EQ(targetCount(*m_container), 2U);
    }

    std::string file() const { return m_path + "/sorrel.cfg"; }
    OpenContainer& container() { return *m_container; }
    const SmallDisk& disk() const { return m_disk; }

private:
    const std::string m_path = files().file("disk");
    SmallDisk m_disk{m_path};
    RecordingSink m_sink;
    std::optional<OpenContainer> m_container;
};

} // namespace

TEST_F(WatcherOnAFullDisk, AFileOfWhichNothingCouldBeWrittenIsEmpty) {
    writeAsFarAsItGoes(targetLine("recording"), [this] { disk().fill(); });
    ASSERT_TRUE(waitForWorkerRereads(container(), 1));
    EXPECT_EQ(targetCount(container()), 0U);
    container().send("lost");
    expectAliveWithRoom();
}

TEST_F(WatcherOnAFullDisk, AFileThatIsCutInALineUnloadsNothing) {
    std::string text;
    while (text.size() < 8192) {
        text += "component=net,11\n"; // no page ends with the end of a line
    }
    disk().fill();
    writeAsFarAsItGoes(text + targetLine("recording")); // there is the page that the old text had
    ASSERT_TRUE(waitForWorkerRereads(container(), 1));
    EXPECT_EQ(diagnostics().count("cfread: non-terminated entry in " + file() + " at line 241"), 1);
    EXPECT_EQ(diagnostics().count("unable to read sorrel-config \"" + file() + "\" - giving up."), 1);
    EXPECT_EQ(targetCount(container()), 1U);
    container().send("kept");
    EXPECT_THAT(journal::texts(), ElementsAre("kept"));
    expectAliveWithRoom();
}
