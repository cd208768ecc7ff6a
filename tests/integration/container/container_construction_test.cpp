// How a container comes to life: what it reads, opens and starts, and what it leaves alone.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class ContainerConstruction : public ContainerFixture {
protected:
    // The id of the one thread that was started since `before` was taken.
    static int newThread(const std::set<int>& before) {
        for (const int id : threadIds()) {
            if (before.count(id) == 0) {
                return id;
            }
        }
        return -1;
    }
};

bool isInotifyOpen() {
    for (const auto& entry : openDescriptors()) {
        if (entry.second == "anon_inode:inotify") {
            return true;
        }
    }
    return false;
}

constexpr std::uint64_t bitOf(int signal) {
    return std::uint64_t{1} << (signal - 1);
}

sigset_t signalMask() {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

} // namespace

TEST_F(ContainerConstruction, APassiveContainerReadsNothingOpensNothingAndStartsNothing) {
    configure(targetLine("recording"));
    const auto descriptors = openDescriptors();
    const auto threads = threadIds();
    OpenContainer container(directory(), false);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; })); // one that was joined may still be listed
    EXPECT_THAT(container.targets, IsEmpty());
    EXPECT_EQ(container.worker, nullptr);
    EXPECT_EQ(container.appname, "");
    EXPECT_FALSE(container->hasSyslogTarget());
    EXPECT_THAT((std::vector<int>{container.epollFd, container.inotifyFd, container.watchFd, container.pipeFds[0],
                                  container.pipeFds[1]}),
                ElementsAre(-1, -1, -1, -1, -1));
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
    EXPECT_THAT(journal::events(), IsEmpty());
}

TEST_F(ContainerConstruction, AnActiveContainerReadsItsConfigurationOnceAndWatchesIt) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), true);
    EXPECT_EQ(readsOf(defaultFile()), 1);
    EXPECT_THAT(container.targets, SizeIs(1));
    EXPECT_NE(container.worker, nullptr);
    const auto open = openDescriptors();
    EXPECT_EQ(open.at(container.epollFd), "anon_inode:[eventpoll]");
    EXPECT_EQ(open.at(container.inotifyFd), "anon_inode:inotify");
    EXPECT_GE(container.watchFd, 1);
    EXPECT_EQ(open.at(container.pipeFds[0]), open.at(container.pipeFds[1]));
    EXPECT_EQ(open.at(container.pipeFds[0]).rfind("pipe:", 0), 0U);
}

TEST_F(ContainerConstruction, TheConfigurationIsReadBeforeAnythingIsWatched) {
    configure(targetLine("recording"));
    bool watched = true;
    journal::onEvent("init", [&](const PluginEvent&) { watched = isInotifyOpen(); });
    OpenContainer container(directory(), true);
    journal::onEvent("init", nullptr);
    EXPECT_FALSE(watched);
    EXPECT_TRUE(isInotifyOpen());
}

TEST_F(ContainerConstruction, KeepsTheWordingOfTheMessageThatThereIsNoWorker) {
    const auto threads = threadIds();
    OpenContainer container(directory(), true);
    EXPECT_THAT(diagnostics().texts(),
                ElementsAre("logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"",
                            "cfread: unable to open " + defaultFile(),
                            "unable to read sorrel-config \"" + defaultFile() + "\" - giving up.",
                            "logtarget-container: unable to initialize event-handling - not worker thread will be "
                            "spawned"));
    EXPECT_EQ(diagnostics().records().back().priority, 3);
    EXPECT_EQ(container.worker, nullptr);
    EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; })); // one that was joined may still be listed
}

TEST_F(ContainerConstruction, KeepsTheWordingOfTheMessageThatNothingWillBeWatched) {
    const OpenContainer container(directory(), true);
    EXPECT_TRUE(diagnostics().has(
        "logtarget-container: unable to initialize event-handling - not worker thread will be spawned"));
}

TEST_F(ContainerConstruction, AnUnwatchedContainerWorks) {
    OpenContainer container(directory(), true);
    configure(targetLine("recording"));
    container->onCfgUpdate();
    container.send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(ContainerConstruction, TheWorkerBlocksEverySignal) {
    configure("");
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr); // whatever the test inherited
    const auto before = threadIds();
    OpenContainer container(directory(), true);
    const std::uint64_t blocked = blockedSignals(newThread(before));
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        const bool cannotBeBlocked = signal == SIGKILL || signal == SIGSTOP || signal >= 32;
        EXPECT_TRUE(cannotBeBlocked || (blocked & bitOf(signal)) != 0) << signal;
    }
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
        EXPECT_NE(blocked & bitOf(signal), 0U) << signal;
    }
}

TEST_F(ContainerConstruction, TheSignalMaskOfTheApplicationStaysAsItIs) {
    configure("");
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &own, nullptr);
    OpenContainer container(directory(), true);
    ASSERT_NE(container.worker, nullptr);
    const sigset_t after = signalMask();
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&after, signal) == 1, signal == SIGUSR2) << signal;
    }
}

TEST_F(ContainerConstruction, AThrowingTargetEndsItAndReleasesTheTargetsThatStandAlready) {
    configure(targetLine("recording") + targetLine("throwing_init"));
    const auto threads = threadIds();
    EXPECT_THROW(OpenContainer(directory(), true), std::runtime_error);
    EXPECT_TRUE(waitUntil([&] { return threadIds() == threads; })); // one that was joined may still be listed
    EXPECT_THAT(journal::ofKind("destroy"), SizeIs(1));
    EXPECT_EQ(journal::lines().back(), "recording done");
    EXPECT_TRUE(isLibraryOpen(pluginPath("throwing_init"))) << "the exception may refer to its code";
}

TEST_F(ContainerConstruction, ALoadedTargetThatThrowsIsReleasedButItsLibraryStaysOpen) {
    configure(targetLine("throwing", "throw=isSyslog"));
    EXPECT_THROW(OpenContainer(directory(), true), std::runtime_error);
    EXPECT_EQ(journal::lines().back(), "throwing done");
    EXPECT_TRUE(isLibraryOpen(pluginPath("throwing"))) << "the exception may refer to its code";
}

TEST_F(ContainerConstruction, AThrowingTargetIsToldNothingMoreAndTheNextContainerWorks) {
    configure(targetLine("throwing", "throw=getName"));
    EXPECT_THROW(OpenContainer(directory(), true), std::runtime_error);
    EXPECT_EQ(journal::lines().back(), "throwing getName");
    configure(targetLine("recording"));
    OpenContainer container(directory(), true);
    container.send("hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(ContainerConstruction, TheNameOfTheApplicationParameterIsOneString) {
    EXPECT_EQ(sorrel::TARGET_TOKEN_APPLICATION_NAME(), "application-name");
    EXPECT_EQ(&sorrel::TARGET_TOKEN_APPLICATION_NAME(), &sorrel::TARGET_TOKEN_APPLICATION_NAME());
}
