// The end of a container: the worker, the descriptors, the targets, in this order.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ContainerDestruction : public ContainerFixture {};

} // namespace

TEST_F(ContainerDestruction, TheWorkerIsToldToEndAndJoined) {
    configure("");
    const auto threads = threadIds();
    { const OpenContainer container(directory(), true); }
    EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; })); // one that was joined may still be listed
    EXPECT_EQ(diagnostics().texts().back(), "logtarget-container: got exit message - ending thread.");
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(ContainerDestruction, EveryDescriptorIsClosed) {
    configure(targetLine("recording"));
    const auto before = openDescriptors();
    { const OpenContainer container(directory(), true); }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ContainerDestruction, TheTargetsAreReleasedFromTheFirstPathOnFactoryDestroyDoneClose) {
    configure(targetLine("recording_b") + targetLine("recording"));
    {
        const OpenContainer container(directory(), true);
        journal::clear();
        diagnostics().clear();
    }
    EXPECT_THAT(journal::lines(), ElementsAre("recording factory", "recording destroy", "recording done",
                                              "recording_b factory", "recording_b destroy", "recording_b done"));
    std::vector<std::string> expected = {"logtarget-container: got exit message - ending thread."};
    for (const std::string name : {"recording", "recording_b"}) {
        const std::string quoted = "\"" + pluginPath(name) + "\"";
        expected.push_back("Retrieving classfactory from shared library " + quoted);
        expected.push_back("Calling done function for shared library " + quoted);
        expected.push_back("closing shared library " + quoted);
        EXPECT_FALSE(isLibraryOpen(pluginPath(name)));
    }
    EXPECT_EQ(diagnostics().texts(), expected);
}

TEST_F(ContainerDestruction, TheTargetsAreReleasedWhenWorkerAndDescriptorsAreGoneAndWithoutTheLock) {
    configure(targetLine("recording"));
    const auto descriptors = openDescriptors();
    const auto threads = threadIds();
    auto container = std::make_unique<OpenContainer>(directory(), true, nullptr);
    sorrel::CLogTargetContainer& dying = **container;
    std::map<int, std::string> descriptorsLeft;
    std::set<int> threadsLeft;
    bool free = false;
    journal::onEvent("destroy", [&](const PluginEvent&) {
        descriptorsLeft = openDescriptors();
        waitUntil([&] { return (threadsLeft = threadIds()) == threads; }); // one that was joined may still be listed
        free = isLockFree(dying);
    });
    container.reset();
    journal::onEvent("destroy", nullptr);
    EXPECT_EQ(descriptorsLeft, descriptors);
    EXPECT_EQ(threadsLeft, threads);
    EXPECT_TRUE(free);
}

TEST_F(ContainerDestruction, ADerivedContainerIsDeletedThroughItsBase) {
    class Derived : public sorrel::CLogTargetContainer {
    public:
        Derived(const std::string& directory, bool& destroyed)
            : CLogTargetContainer(directory, false, nullptr), m_destroyed(destroyed) {}
        Derived(const Derived&) = delete;
        Derived& operator=(const Derived&) = delete;
        ~Derived() override { m_destroyed = true; }

    private:
        bool& m_destroyed;
    };
    configure(targetLine("recording"));
    bool destroyed = false;
    std::unique_ptr<sorrel::CLogTargetContainer> container = std::make_unique<Derived>(directory(), destroyed);
    container->onCfgUpdate();
    container.reset();
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(journal::lines().back(), "recording done");
}

TEST_F(ContainerDestruction, APassiveContainerEndsInSilence) {
    { const OpenContainer container(directory(), false); }
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(ContainerDestruction, KeepsForcingExitWhenTheWorkerCannotBeToldToEnd) {
    configure(targetLine("recording"));
    const auto destroyUntold = [this] {
        OpenContainer container(directory(), true);
        container.pipeFds[1] = -1;
        errno = EIO;
    };
    EXPECT_EXIT(destroyUntold(), testing::KilledBySignal(SIGABRT), "terminate called without an active exception");
    const std::vector<SyslogRecord> records = diagnostics().records();
    ASSERT_GE(records.size(), 2U);
    EXPECT_EQ(records[records.size() - 2].text, "logtarget-container: invalid pipe-fd (notify)");
    EXPECT_EQ(records.back().text, "logtarget-container: unable to terminate worker thread - forcing exit. "
                                   "(errno=Input/output error)");
    EXPECT_EQ(records.back().priority, 3);
}
