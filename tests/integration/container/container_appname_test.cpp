// The application's name: what a new one sets in motion, and that the same one does nothing.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class ContainerAppname : public ContainerFixture {
protected:
    // Names the application of a container without a worker, and expects both messages that say so, and all the rest.
    void expectNamedWithoutWorker(OpenContainer& container) {
        configure(targetLine("recording"));
        diagnostics().clear();
        container->setAppname("player");
        const std::vector<SyslogRecord> records = diagnostics().records();
        ASSERT_GE(records.size(), 2U);
        const SyslogRecord& pipe = records[records.size() - 2];
        EXPECT_EQ(pipe.text, "logtarget-container: invalid pipe-fd (notify)");
        EXPECT_EQ(pipe.priority, 3);
        EXPECT_EQ(records.back().text, "logtarget-container: unable to notify thread about a changed appname");
        EXPECT_EQ(records.back().priority, 3);
        EXPECT_EQ(container.appname, "player");
        EXPECT_EQ(readsOf(defaultFile()), 1);
        EXPECT_EQ(journal::lines().back(), "recording appname player");
    }
};

// Looks into the pipe whenever the lock is given back for good.
class PipeWatchingContainer : public sorrel::CLogTargetContainer {
public:
    explicit PipeWatchingContainer(const std::string& directory) : CLogTargetContainer(directory, false, nullptr) {
        init_fds();
    }

    void lock() override {
        CLogTargetContainer::lock();
        ++m_depth;
    }

    void unlock() override {
        if (--m_depth == 0) {
            bytesAtUnlock.push_back(bytesWaiting(readEnd()));
        }
        CLogTargetContainer::unlock();
    }

    int readEnd() const { return m_pipeFds[0]; }

    std::vector<int> bytesAtUnlock;

private:
    int m_depth = 0;
};

} // namespace

TEST_F(ContainerAppname, TheStoredNameAgainDoesNothingAtAll) {
    configure(targetLine("recording"));
    PipeWatchingContainer container(directory());
    container.setAppname("player");
    ASSERT_EQ(bytesWaiting(container.readEnd()), 4);
    container.bytesAtUnlock.clear();
    diagnostics().clear();
    journal::clear();
    container.setAppname("player");
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    EXPECT_THAT(journal::events(), IsEmpty());
    EXPECT_EQ(bytesWaiting(container.readEnd()), 4) << "the worker is not notified";
    EXPECT_THAT(container.bytesAtUnlock, IsEmpty()) << "the lock is not even taken";
}

TEST_F(ContainerAppname, TheEmptyNameOnAFreshContainerDoesNothingAtAll) {
    configure(targetLine("recording"));
    PipeWatchingContainer container(directory());
    container.setAppname("");
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    EXPECT_THAT(journal::events(), IsEmpty());
    EXPECT_EQ(bytesWaiting(container.readEnd()), 0);
}

TEST_F(ContainerAppname, TheEmptyNameAfterAnotherIsANewName) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->setAppname("player");
    container->setAppname("");
    EXPECT_EQ(container.appname, "");
    EXPECT_EQ(journal::lines().back(), "recording appname");
}

TEST_F(ContainerAppname, NamesAreComparedByAllTheirBytes) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->setAppname("a");
    container->setAppname(std::string("a\0b", 3));
    container->setAppname("A");
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(3));
    EXPECT_EQ(journal::ofKind("appname")[1].text, std::string("a\0b", 3));
}

TEST_F(ContainerAppname, ANewNameReReadsThenTellsEveryTargetThoseJustLoadedIncluded) {
    configure(targetLine("recording"));
    configureApp("player", targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    journal::clear();
    container->setAppname("player");
    EXPECT_THAT(journal::lines(),
                ElementsAre("recording_b init null", "recording_b factory", "recording_b create LogTarget",
                            "recording_b getName", "recording isSyslog", "recording_b isSyslog",
                            "recording appname player", "recording_b appname player"));
}

TEST_F(ContainerAppname, ATargetThatIsLoadedLaterGetsTheNameAsItsParameter) {
    configure("");
    OpenContainer container(directory(), false);
    container->setAppname("player");
    configure(targetLine("recording"));
    container->onCfgUpdate();
    ASSERT_THAT(journal::ofKind("create"), SizeIs(1));
    EXPECT_EQ(journal::ofKind("create")[0].params.at("application-name"), "player");
}

TEST_F(ContainerAppname, TheWorkerIsNotifiedOnceTheLockIsGivenBack) {
    configure("");
    PipeWatchingContainer container(directory());
    container.setAppname("player");
    EXPECT_THAT(container.bytesAtUnlock, ElementsAre(0));
    int notification = -1;
    ASSERT_EQ(read(container.readEnd(), &notification, sizeof notification), 4);
    EXPECT_EQ(notification, 1);
    EXPECT_EQ(bytesWaiting(container.readEnd()), 0);
}

TEST_F(ContainerAppname, KeepsReportingThatAPassiveContainerHasNoWorkerToNotify) {
    OpenContainer container(directory(), false);
    expectNamedWithoutWorker(container);
}

TEST_F(ContainerAppname, KeepsReportingThatAnUnwatchedContainerHasNoWorkerToNotify) {
    OpenContainer container(directory(), true);
    expectNamedWithoutWorker(container);
}
