// The container's lock: who takes it, through which door, and that nobody keeps it.
#include "container_fixture.hpp"

#include <sorrel/component.hpp>

#include <gmock/gmock.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <system_error>

using testing::Each;
using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;

namespace {

// Counts what goes through the virtual lock and unlock.
class CountingContainer : public sorrel::CLogTargetContainer {
public:
    explicit CountingContainer(const std::string& directory) : CLogTargetContainer(directory, false, nullptr) {}

    void lock() override {
        CLogTargetContainer::lock();
        ++locks;
        ++depth;
    }

    void unlock() override {
        --depth;
        CLogTargetContainer::unlock();
    }

    const std::map<std::string, sorrel::CPluggableLogModule>& targets() const { return m_targets; }

    int locks = 0; // guarded by the lock, and so is the next
    int depth = 0;
};

class ContainerLock : public ContainerFixture {
protected:
    // At each call of this kind the lock is held: in the counting container's view and in that of other threads.
    void watchCallsOfKind(const std::string& kind, CountingContainer& container) {
        journal::onEvent(
            kind, [&](const PluginEvent&) { m_heldAtCalls.push_back(container.depth > 0 && !isLockFree(container)); });
    }

    std::vector<bool> callsOf(const std::string& kind) {
        journal::onEvent(kind, nullptr);
        return std::exchange(m_heldAtCalls, {});
    }

    // After an operation: everything that was taken was given back.
    static void expectGivenBack(CountingContainer& container) {
        EXPECT_GT(container.locks, 0);
        EXPECT_EQ(container.depth, 0);
        EXPECT_TRUE(isLockFree(container));
    }

    // Runs the operation, in which the plug-in "throwing" throws, and expects the exception and a free lock.
    template <class Operation>
    static void expectThrows(CountingContainer& container, Operation operation) {
        EXPECT_THROW(operation(), std::runtime_error);
        expectGivenBack(container);
    }

    void configureThrowing(const std::string& kind) { configure(targetLine("throwing", "throw=" + kind)); }

private:
    std::vector<bool> m_heldAtCalls;
};

} // namespace

TEST_F(ContainerLock, LogTakesItThroughTheVirtualDoor) {
    configure(targetLine("recording"));
    CountingContainer container(directory());
    container.onCfgUpdate();
    container.locks = 0;
    watchCallsOfKind("log", container);
    sendMessage(container, "hello");
    EXPECT_THAT(callsOf("log"), ElementsAre(true));
    EXPECT_EQ(container.locks, 1) << "once a message";
    expectGivenBack(container);
}

TEST_F(ContainerLock, OnComponentAddedTakesItThroughTheVirtualDoor) {
    configure(targetLine("recording"));
    CountingContainer container(directory());
    container.onCfgUpdate();
    container.locks = 0;
    watchCallsOfKind("component", container);
    sorrel_component component{"net", 0xff, {}};
    container.onComponentAdded(&component);
    EXPECT_THAT(callsOf("component"), ElementsAre(true));
    EXPECT_EQ(container.locks, 1);
    expectGivenBack(container);
}

TEST_F(ContainerLock, SetAppnameTakesItThroughTheVirtualDoor) {
    configure(targetLine("recording"));
    CountingContainer container(directory());
    container.onCfgUpdate();
    container.locks = 0;
    watchCallsOfKind("appname", container);
    container.setAppname("player");
    EXPECT_THAT(callsOf("appname"), ElementsAre(true));
    EXPECT_EQ(container.locks, 2) << "its own, and that of the re-read inside";
    expectGivenBack(container);
}

TEST_F(ContainerLock, TheReReadTakesItThroughTheVirtualDoorForItsWholeLength) {
    CountingContainer container(directory());
    const std::vector<std::string> kinds = {"init", "factory", "create", "getName", "isSyslog", "destroy", "done"};
    for (const std::string& kind : kinds) {
        configure(targetLine("recording"));
        watchCallsOfKind(kind, container);
        container.onCfgUpdate();
        configure("");
        container.onCfgUpdate();
        const std::vector<bool> held = callsOf(kind);
        EXPECT_THAT(held, Not(SizeIs(0))) << kind;
        EXPECT_THAT(held, Each(true)) << kind;
    }
    expectGivenBack(container);
}

TEST_F(ContainerLock, AReReadThatFailsGivesItBack) {
    CountingContainer container(directory());
    container.onCfgUpdate();
    expectGivenBack(container);
}

TEST_F(ContainerLock, APassiveEmptyContainerLocksDoesNothingAndUnlocks) {
    CountingContainer container(directory());
    sendMessage(container, "hello");
    sorrel_component component{"net", 0xff, {}};
    container.onComponentAdded(&component);
    EXPECT_EQ(container.locks, 2);
    EXPECT_FALSE(container.hasSyslogTarget());
    expectGivenBack(container);
}

TEST_F(ContainerLock, HasSyslogTargetTakesNoLock) {
    CountingContainer container(directory());
    container.hasSyslogTarget();
    EXPECT_EQ(container.locks, 0);
}

TEST_F(ContainerLock, AThreadMayTakeItAgain) {
    OpenContainer container(directory(), false);
    container->lock();
    container->lock();
    container->unlock();
    EXPECT_FALSE(isLockFree(*container)) << "still taken once";
    container->unlock();
    EXPECT_TRUE(isLockFree(*container));
}

TEST_F(ContainerLock, AFailureToLockIsThrownWithItsErrorNumber) {
    OpenContainer container(directory(), false);
    container->lock();
    unsigned int& timesTaken = OpenContainer::mutexOf(*container)->__data.__count;
    timesTaken = std::numeric_limits<unsigned int>::max(); // as often as it can be taken
    try {
        container->lock();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(EAGAIN, std::generic_category()));
    }
    EXPECT_THROW(container.send("hello"), std::system_error);
    EXPECT_THROW(container->setAppname("player"), std::system_error);
    EXPECT_THROW(container->onCfgUpdate(), std::system_error);
    EXPECT_EQ(container.appname, "") << "nothing was done";
    timesTaken = 1;
    container->unlock();
}

TEST_F(ContainerLock, ATargetThatThrowsFromLogDoesNotKeepItAndCutsTheMessageShort) {
    configure(targetLine("recording") + targetLine("throwing", "throw=log") + targetLine("without_hooks"));
    CountingContainer container(directory());
    container.onCfgUpdate();
    expectThrows(container, [&] { sendMessage(container, "hello"); });
    const std::vector<PluginEvent> received = journal::ofKind("log");
    ASSERT_EQ(received.size(), 2U) << "a target behind the throwing one does not get the message";
    EXPECT_EQ(received[0].library, "recording");
    EXPECT_EQ(received[1].library, "throwing");
}

TEST_F(ContainerLock, ATargetThatThrowsFromOnComponentAddedDoesNotKeepIt) {
    configureThrowing("component");
    CountingContainer container(directory());
    container.onCfgUpdate();
    sorrel_component component{"net", 0xff, {}};
    expectThrows(container, [&] { container.onComponentAdded(&component); });
}

TEST_F(ContainerLock, ATargetThatThrowsFromSetAppnameDoesNotKeepIt) {
    configureThrowing("appname");
    CountingContainer container(directory());
    container.onCfgUpdate();
    expectThrows(container, [&] { container.setAppname("player"); });
    EXPECT_EQ(container.getAppCfgFilename(), appFile("player"));
}

TEST_F(ContainerLock, ATargetThatThrowsDuringAReReadDoesNotKeepIt) {
    for (const std::string kind : {"create", "getName", "isSyslog"}) {
        configureThrowing(kind);
        CountingContainer container(directory());
        expectThrows(container, [&] { container.onCfgUpdate(); });
    }
}

TEST_F(ContainerLock, ALibraryThatThrowsFromItsInitFunctionDoesNotKeepItAndStaysOpen) {
    configure(targetLine("throwing_init"));
    CountingContainer container(directory());
    expectThrows(container, [&] { container.onCfgUpdate(); });
    EXPECT_THAT(container.targets(), SizeIs(0));
    EXPECT_TRUE(isLibraryOpen(pluginPath("throwing_init"))) << "the exception may refer to its code";
}
