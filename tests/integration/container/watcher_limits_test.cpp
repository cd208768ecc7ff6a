// The limits of inotify, which the kernel sets for each user: a container that meets one works unwatched. Real limits.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <sys/inotify.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A user namespace of the test's own, whose limits of inotify are nobody else's. It has to come before the threads of
// other fixtures. Containers often refuse it, and emulated programs, which have threads from the start, cannot have it.
class OwnLimits {
protected:
    OwnLimits() {
        const std::string user = std::to_string(geteuid());
        const std::string group = std::to_string(getegid());
        if (unshare(CLONE_NEWUSER) != 0) {
            m_refusal = strerror(errno);
        } else {
            writeTo("/proc/self/setgroups", "deny");
            writeTo("/proc/self/uid_map", user + " " + user + " 1");
            writeTo("/proc/self/gid_map", group + " " + group + " 1");
        }
    }

    // Why there is no such namespace here; empty where there is one.
    const std::string& refusal() const { return m_refusal; }

    // What the users of this namespace may have at once, of "instances" or "watches".
    void limit(const std::string& what, int count) const {
        writeTo("/proc/sys/user/max_inotify_" + what, std::to_string(count));
    }

private:
    static void writeTo(const std::string& path, const std::string& text) {
        EXPECT_TRUE(std::ofstream(path) << text << std::flush) << path;
    }

    std::string m_refusal;
};

class WatcherLimits : private OwnLimits, public ContainerFixture {
protected:
    using OwnLimits::limit;

    void SetUp() override {
        configure(targetLine("recording"));
        if (!refusal().empty()) {
            GTEST_SKIP() << "no user namespace: " << refusal();
        }
    }

    // Builds a container that reads its configuration and works, unwatched, and says so.
    void expectUnwatched() {
        OpenContainer container(directory(), true);
        EXPECT_EQ(diagnostics().texts().back(),
                  "logtarget-container: unable to initialize event-handling - not worker thread will be spawned");
        EXPECT_EQ(diagnostics().records().back().priority, 3);
        EXPECT_EQ(container.worker, nullptr);
        container.send("hello");
        EXPECT_THAT(journal::texts(), ElementsAre("hello"));
    }

    void expectWatched() {
        RecordingSink sink;
        OpenContainer container(directory(), true, &sink);
        configure("component=net,11\n");
        EXPECT_TRUE(sink.waitFor("net", "11"));
    }
};

} // namespace

TEST_F(WatcherLimits, WithAllInstancesInUseAContainerWorksUnwatched) {
    limit("instances", 1);
    const int other = inotify_init1(IN_CLOEXEC);
    expectUnwatched();
    close(other);
    expectWatched();
}

TEST_F(WatcherLimits, WithAllWatchesInUseAContainerWorksUnwatched) {
    limit("watches", 1);
    const int other = inotify_init1(IN_CLOEXEC);
    ASSERT_NE(inotify_add_watch(other, directory().c_str(), IN_CREATE), -1);
    expectUnwatched();
    close(other);
    expectWatched();
}

TEST_F(WatcherLimits, AWatchThatCannotMoveIsLostWithAMessageAndTheTargetsStay) {
    configureApp("player", targetLine("recording"));
    OpenContainer container(directory(), true);
    limit("watches", 0);
    container->setAppname("player");
    EXPECT_TRUE(diagnostics().waitFor("logtarget-container: Unable to watch application-specific config-file "
                                      "\"player\" for changes - errno=No space left on device"));
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(inotifyWatches(container.inotifyFd), IsEmpty());
    container.send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}
