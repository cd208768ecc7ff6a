// The order of the container's mutex and the components lock: operations that need both, from both sides, at once.
#include "blocked_thread.hpp"
#include "logger_fixture.hpp"
#include "watchdog.hpp"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>

using testing::Contains;
using testing::ElementsAre;

namespace {

class LockOrder : public LoggerFixture {
protected:
    // The watched file is rewritten and has been read again.
    void reread(const std::string& text) {
        const std::string marker = "marker " + std::to_string(++m_rereads);
        configure(text + "component=" + marker + ",1\n");
        EXPECT_TRUE(journal::waitFor([&](const PluginEvent& event) { return event.componentName == marker; }));
        journal::clear();
    }

    // Runs a creation in another thread up to the point where it has to wait.
    void startBlockedCreation() {
        m_creation = std::make_unique<ObservedThread>([] { sorrel_create_component("created", SR_ALL, "8=ERR"); });
        EXPECT_TRUE(m_creation->waitUntilBlocked());
    }

    void finishCreation() {
        m_creation.reset();
        EXPECT_THAT(componentNames(), Contains("created"));
    }

    std::unique_ptr<ObservedThread> m_creation;

private:
    int m_rereads = 0;
    Watchdog m_watchdog;
};

// Everything that an application does with components and levels, again and again.
void useComponents(const std::string& name) {
    sorrel_component* const own = sorrel_create_component(name.c_str(), SR_INFO, "64=INFO");
    sorrel_create_component("net", SR_ALL, "8=ERR");
    CSorrel::getInstance()->updateComponentLevel("audio", "111");
    sorrel::sorrel_set_component_level("video", 0x40);
    sorrel::sorrel_get_component_level("net");
    std::vector<std::string> names;
    sorrel::sorrel_get_component_names(names);
    std::vector<std::pair<unsigned int, std::string>> descriptions;
    sorrel::sorrel_get_level_descriptions("net", descriptions);
    _sorrel(own, SR_INFO, "hello");
}

constexpr char kComponentLines[] = "component=net,11111111\ncomponent=audio,1\ncomponent=video,1111111\n";

} // namespace

TEST_F(LockOrder, KeepsBothNestingsWhenACreationMeetsAReRead) {
    configure(target("recording"));
    CSorrel::getInstance();
    const ScopedHook hook("create", [this](const PluginEvent&) { startBlockedCreation(); });
    reread(target("recording") + target("recording_b") + "component=net,101\n");
    finishCreation();
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 5U);
}

TEST_F(LockOrder, ATargetMayCreateAComponentInsideItsLogWhileAnotherThreadCreatesOne) {
    configure(target("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    const ScopedHook hook("log", [this](const PluginEvent&) {
        startBlockedCreation();
        sorrel_create_component("inside", SR_ALL, "8=ERR");
    });
    _sorrel(net, SR_INFO, "hello");
    finishCreation();
    EXPECT_THAT(componentNames(), ElementsAre("created", "inside", "net"));
}

TEST_F(LockOrder, AThreadThatHoldsTheComponentsMayLogWhileAnotherOneCreates) {
    configure(target("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    CSorrel::getInstance()->lockComponents();
    startBlockedCreation();
    _sorrel(net, SR_INFO, "hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
    CSorrel::getInstance()->unlockComponents();
    finishCreation();
}

TEST_F(LockOrder, AThreadThatHoldsTheComponentsMayLogWhileAnotherOneUpdates) {
    configure(target("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    CSorrel::getInstance()->lockComponents();
    const ObservedThread update([] { CSorrel::getInstance()->updateComponentLevel("net", "1"); });
    EXPECT_TRUE(update.waitUntilBlocked());
    _sorrel(net, SR_INFO, "hello");
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
    CSorrel::getInstance()->unlockComponents();
}

TEST_F(LockOrder, KeepsTheComponentsLockedWhileTargetsAreTold) {
    configure(target("recording"));
    CSorrel::getInstance();
    std::unique_ptr<ObservedThread> setter;
    const ScopedHook hook("component", [&setter](const PluginEvent&) {
        setter = std::make_unique<ObservedThread>([] { sorrel::sorrel_set_component_level("net", 0); });
        EXPECT_TRUE(setter->waitUntilBlocked());
        EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0xffffffffU);
    });
    sorrel_create_component("net", SR_ALL, "");
    setter.reset();
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0U);
}

TEST_F(LockOrder, ATargetThatThrowsWhenItIsToldOfAComponentLeavesBothLocksFree) {
    configure(target("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_ALL, "");
    {
        const ScopedHook hook("component", [](const PluginEvent&) { throw std::runtime_error("not this one"); });
        EXPECT_THROW(sorrel_create_component("created", SR_ALL, ""), std::runtime_error);
        EXPECT_THROW(CSorrel::getInstance()->updateComponentLevel("net", "1111111"), std::runtime_error);
    }
    EXPECT_THAT(componentNames(), ElementsAre("created", "net")) << "they stay as the target was told";
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0x7fU);
    ObservedThread([net] {
        sorrel::sorrel_set_component_level("net", 0xff);
        sorrel_create_component("other", SR_ALL, "");
        _sorrel(net, SR_INFO, "hello");
    }).join();
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(LockOrder, ThreadsUseComponentsWhileTheConfigurationIsReadAgainAndTargetsUseThemToo) {
    constexpr int kThreads = 3;
    constexpr int kRereads = 25;
    const std::string lines = target("recording") + kComponentLines;
    configure(lines);
    CSorrel::getInstance();
    const ScopedHook hook("log", [](const PluginEvent&) {
        sorrel_create_component("inside", SR_ALL, "8=ERR");
        CSorrel::getInstance()->updateComponentLevel("audio", "1");
        sorrel::sorrel_get_component_level("net");
        sorrel::sorrel_set_component_level("video", 0x7f);
    });
    std::atomic<bool> over{false};
    std::vector<std::unique_ptr<ObservedThread>> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(std::make_unique<ObservedThread>([&over, i] {
            while (!over) {
                useComponents("thread " + std::to_string(i));
            }
        }));
    }
    for (int i = 0; i < kRereads; ++i) {
        reread(lines);
    }
    over = true;
    threads.clear();
    EXPECT_THAT(componentNames(), Contains("marker 25"));
    EXPECT_THAT(componentNames(), Contains("inside"));
}

// Without a thread that watches: it reads the name while others set it, by design.
TEST_F(LockOrder, TheApplicationMayBeNamedWhileOthersUseComponents) {
    removeConfiguration();
    configureApp("player", target("recording") + kComponentLines);
    configureApp("viewer", target("recording_b") + kComponentLines);
    CSorrel::getInstance();
    std::atomic<bool> over{false};
    const ObservedThread user([&over] {
        while (!over) {
            useComponents("user");
        }
    });
    for (int i = 0; i < 50; ++i) {
        sorrel_set_applicationname(i % 2 == 0 ? "player" : "viewer");
    }
    over = true;
    EXPECT_EQ(journal::ofKind("appname").size(), 50U);
}
