// What targets ask for from inside their operations: it is done when the outermost operation ends, and not before.
#include "container_fixture.hpp"
#include "logger_fixture.hpp"
#include "watchdog.hpp"

#include <algorithm>
#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char kWatching[] = "logtarget-container: Watching application-specific config-file \"player\" for changes";

// The plug-in "recording" asks for something; "recording_b" stays loaded all the time.
class NestedOperations : public ContainerFixture, public testing::WithParamInterface<std::string> {
protected:
    NestedOperations() {
        configure(targetLine("recording_b"));
        configureApp("player", targetLine("recording_b"));
    }

    // Does something inside the first operation of this kind of the plug-in "recording".
    void inside(const std::string& kind, std::function<void()> action) {
        journal::onEvent(kind, [this, action = std::move(action)](const PluginEvent& event) {
            if (event.library == "recording" && !std::exchange(m_done, true)) {
                action();
            }
        });
    }

    // Bring about every operation of a target: it is loaded, told everything, and unloaded.
    void runThroughAll(OpenContainer& container) {
        loadAndUse(container);
        if (!m_done) {
            container->setAppname("first");
        }
        unload(container);
    }

    void runThroughAllWithAName(OpenContainer& container) {
        loadAndUse(container);
        container->setAppname("first");
        unload(container);
    }

    bool wasDone() const { return m_done; }

    int rereads() { return readsOf(defaultFile()) + readsOf(appFile("player")); }

    static std::vector<std::string> namesTold() {
        std::vector<std::string> names;
        for (const PluginEvent& event : journal::ofKind("appname")) {
            if (event.library == "recording_b") {
                names.push_back(event.text);
            }
        }
        return names;
    }

private:
    void loadAndUse(OpenContainer& container) {
        configure(targetLine("recording") + targetLine("recording_b"));
        container->onCfgUpdate();
        sorrel_component component{"net", 0xff, {}};
        container->onComponentAdded(&component);
        container.send("hello");
    }

    void unload(OpenContainer& container) {
        configure(targetLine("recording_b"));
        container->onCfgUpdate();
    }

    Watchdog m_watchdog;
    bool m_done = false;
};

using NestedOperation = NestedOperations; // for the tests that are not done for each kind

const auto kEveryKind = testing::Values("init", "factory", "create", "getName", "isSyslog", "component", "log",
                                        "appname", "destroy", "done");

std::string kindOf(const testing::TestParamInfo<std::string>& info) {
    return info.param;
}

} // namespace

TEST_P(NestedOperations, NamingTheApplicationStoresTheNameAtOnceAndDoesTheRestAfterwards) {
    OpenContainer container(directory(), true);
    inside(GetParam(), [&] {
        const std::vector<std::string> before = journal::lines();
        const int rereadsBefore = rereads();
        container->setAppname("player");
        EXPECT_EQ(container.appname, "player");
        EXPECT_EQ(journal::lines(), before) << "no target was told or unloaded";
        EXPECT_EQ(rereads(), rereadsBefore);
    });
    runThroughAll(container);
    ASSERT_TRUE(wasDone());
    EXPECT_THAT(namesTold(), Contains("player").Times(1));
    EXPECT_EQ(namesTold().back(), "player");
    EXPECT_GE(readsOf(appFile("player")), 1);
    EXPECT_TRUE(diagnostics().waitFor(kWatching)) << "the worker was told";
    EXPECT_TRUE(waitUntil([&] { return isLockFree(*container); })) << "the worker may be reading";
}

TEST_F(NestedOperation, TargetsThatInsistOnDifferentNamesAreNotHeardForEver) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    const ScopedHook hook("appname", [&](const PluginEvent& event) { container->setAppname(event.library); });
    container->setAppname("neither");
    EXPECT_EQ(container.appname, "recording_b");
    EXPECT_LT(journal::ofKind("appname").size(), 100U);
    EXPECT_TRUE(isLockFree(*container));
}

TEST_P(NestedOperations, AReReadThatIsAskedForIsDoneOnceMoreWhenTheOutermostOperationHasEnded) {
    {
        OpenContainer container(directory(), false);
        runThroughAllWithAName(container);
    }
    const int usual = rereads();
    diagnostics().clear();
    OpenContainer container(directory(), false);
    inside(GetParam(), [&] {
        const int rereadsBefore = rereads();
        container->onCfgUpdate();
        container->onCfgUpdate();
        EXPECT_EQ(rereads(), rereadsBefore);
    });
    runThroughAllWithAName(container);
    ASSERT_TRUE(wasDone());
    EXPECT_EQ(rereads(), usual + 1);
    EXPECT_TRUE(isLockFree(*container));
}

TEST_P(NestedOperations, ATargetIsNotUnloadedWhileOneOfItsOperationsIsOn) {
    OpenContainer container(directory(), false);
    configureApp("player", "");
    inside(GetParam(), [&] {
        const std::vector<std::string> before = journal::lines();
        container->setAppname("player");
        container->onCfgUpdate();
        EXPECT_EQ(journal::lines(), before);
        EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
    });
    runThroughAll(container);
    ASSERT_TRUE(wasDone());
    EXPECT_THAT(container.targets, IsEmpty()) << "unloaded afterwards";
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
}

INSTANTIATE_TEST_SUITE_P(InEach, NestedOperations, kEveryKind, kindOf);

TEST_F(NestedOperation, AReReadFromInsideAMessageRunsWholeBehindTheWalkWithTheName) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    inside("log", [&] { container->setAppname("player"); });
    journal::clear();
    container.send("hello");
    EXPECT_THAT(journal::lines(), ElementsAre("recording log hello", "recording_b log hello", "recording getName",
                                              "recording factory", "recording destroy", "recording done",
                                              "recording_b isSyslog", "recording_b appname player"));
}

TEST_F(NestedOperation, AReReadFromInsideAReReadRunsOnceAfterIt) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    inside("isSyslog", [&] {
        container->onCfgUpdate();
        container->onCfgUpdate();
    });
    journal::clear();
    diagnostics().clear();
    container->onCfgUpdate();
    EXPECT_EQ(rereads(), 2);
    EXPECT_THAT(journal::lines(), ElementsAre("recording isSyslog", "recording_b isSyslog", "recording isSyslog",
                                              "recording_b isSyslog"));
}

TEST_F(NestedOperation, OfANestedMessageWaitsForTheOutermostOne) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    int depth = 0;
    const ScopedHook hook("log", [&](const PluginEvent& event) {
        if (event.library == "recording" && depth < 3) {
            ++depth;
            container.send("inner");
            container->setAppname("player");
        }
    });
    journal::clear();
    container.send("hello");
    const std::vector<std::string> lines = journal::lines();
    const auto firstOther = std::find_if(lines.begin(), lines.end(),
                                         [](const std::string& line) { return line.find(" log ") == line.npos; });
    EXPECT_EQ(firstOther - lines.begin(), 8) << "four messages to two targets come first";
    EXPECT_EQ(readsOf(appFile("player")), 1);
    EXPECT_EQ(lines.back(), "recording_b appname player");
}

TEST_F(NestedOperation, OfSeveralNamesTheLastOneCountsInOneReReadAndOneNotification) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    container->onCfgUpdate();
    inside("log", [&] {
        container->setAppname("first");
        container->setAppname("second");
        container->onCfgUpdate();
        container->setAppname("player");
    });
    diagnostics().clear();
    container.send("hello");
    EXPECT_EQ(rereads(), 1);
    EXPECT_EQ(readsOf(appFile("player")), 1);
    EXPECT_THAT(namesTold(), ElementsAre("player"));
    EXPECT_EQ(bytesWaiting(container.pipeFds[0]), 4);
}

TEST_F(NestedOperation, ANameThatATargetGivesWhenItIsToldOneIsToldInItsTurn) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    ASSERT_EQ(container->init_fds(), 0);
    container->onCfgUpdate();
    inside("appname", [&] { container->setAppname("player"); });
    journal::clear();
    container->setAppname("first");
    EXPECT_THAT(namesTold(), ElementsAre("first", "player")) << "the walk that was on goes on with its own";
    EXPECT_EQ(container.appname, "player");
    EXPECT_EQ(bytesWaiting(container.pipeFds[0]), 4);
}

TEST_F(NestedOperation, WhatWasAskedForInAMessageThatATargetBrokeOffIsDoneByTheNextOperation) {
    configure(targetLine("recording") + targetLine("throwing", "throw=log"));
    configureApp("player", targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    inside("log", [&] { container->setAppname("player"); });
    EXPECT_THROW(container.send("hello"), std::runtime_error);
    EXPECT_TRUE(isLockFree(*container));
    EXPECT_EQ(container.appname, "player");
    sorrel_component component{"net", 0xff, {}};
    container->onComponentAdded(&component);
    EXPECT_THAT(namesTold(), ElementsAre("player"));
    EXPECT_THAT(container.targets, SizeIs(1));
}
