// How a message, a component and a name reach every target.
#include "container_fixture.hpp"

#include <sorrel/component.hpp>
#include <sorrel/sorrel.h>

#include <gmock/gmock.h>

#include <filesystem>

using testing::ElementsAre;
using testing::SizeIs;

namespace {

class ContainerFanOut : public ContainerFixture {
protected:
    // A second path to a plug-in, in the directory of the configuration.
    std::string linkTo(const std::string& plugin, const std::string& name) {
        std::filesystem::create_symlink(pluginPath(plugin), files().file(name));
        return files().file(name);
    }

    static std::vector<std::string> librariesOf(const std::string& kind) {
        std::vector<std::string> libraries;
        for (const PluginEvent& event : journal::ofKind(kind)) {
            libraries.push_back(event.library);
        }
        return libraries;
    }
};

} // namespace

TEST_F(ContainerFanOut, TargetsAreCalledInTheByteWiseOrderOfTheirPathsNotInThatOfTheFile) {
    const std::string small = linkTo("recording", "apple.so");
    const std::string capital = linkTo("recording_b", "Zebra.so");
    configure("target=" + small + "\ntarget=" + capital + "\n");
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    EXPECT_THAT(librariesOf("create"), ElementsAre("recording", "recording_b"));
    container.send("hello");
    EXPECT_THAT(librariesOf("log"), ElementsAre("recording_b", "recording"));
    sorrel_component component{"net", 0xff, {}};
    container->onComponentAdded(&component);
    EXPECT_THAT(librariesOf("component"), ElementsAre("recording_b", "recording"));
    container->setAppname("player");
    EXPECT_THAT(librariesOf("appname"), ElementsAre("recording_b", "recording"));
}

TEST_F(ContainerFanOut, EveryMessageReachesEveryTargetWhateverItsLevel) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    sorrel_level nothing = {0, 0};
    container->log(0, 0, 0, 0, &nothing, "", "", "", "");
    container->log(-1, -2, -3, -4, nullptr, "", "", "", "");
    const std::vector<PluginEvent> events = journal::ofKind("log");
    ASSERT_THAT(events, SizeIs(2));
    EXPECT_EQ(events[0].level, &nothing);
    EXPECT_EQ(events[1].level, nullptr);
    EXPECT_EQ(events[1].processId, -1);
    EXPECT_EQ(events[1].depth, -2);
    EXPECT_EQ(events[1].seconds, -3);
    EXPECT_EQ(events[1].microseconds, -4);
}

TEST_F(ContainerFanOut, TargetsAreToldOfAComponentByItsPointer) {
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    sorrel_component component{"net", 0xff, {}};
    container->onComponentAdded(&component);
    ASSERT_THAT(journal::ofKind("component"), SizeIs(1));
    EXPECT_EQ(journal::ofKind("component")[0].component, &component);
}

TEST_F(ContainerFanOut, ATargetThatIsGoneButStillInTheMapIsSkipped) {
    configure(targetLine("recording") + targetLine("recording_b"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    sorrel::ILogTarget*& target = container.targets.at(pluginPath("recording")).target;
    sorrel::ILogTarget* const saved = std::exchange(target, nullptr);
    container.send("hello");
    EXPECT_THAT(librariesOf("log"), ElementsAre("recording_b"));
    sorrel_component component{"net", 0xff, {}};
    container->onComponentAdded(&component);
    EXPECT_THAT(librariesOf("component"), ElementsAre("recording_b"));
    target = saved; // a re-read asks every target that stays
    journal::onEvent("isSyslog",
                     [&](const PluginEvent& event) { target = event.library == "recording" ? nullptr : target; });
    container->setAppname("player");
    journal::onEvent("isSyslog", nullptr);
    EXPECT_THAT(librariesOf("appname"), ElementsAre("recording_b"));
    target = saved;
}

TEST_F(ContainerFanOut, ThreadsThatLogAtTheSameTimeReachATargetOneByOne) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kMessages = 200;
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    int inside = 0; // neither is guarded by anything but the container
    int mostInside = 0;
    journal::onEvent("log", [&](const PluginEvent&) {
        mostInside = std::max(mostInside, ++inside);
        --inside;
    });
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&container] {
            for (std::size_t k = 0; k < kMessages; ++k) {
                container.send("hello");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    journal::onEvent("log", nullptr);
    EXPECT_EQ(mostInside, 1);
    EXPECT_THAT(journal::ofKind("log"), SizeIs(kThreads * kMessages));
}

TEST_F(ContainerFanOut, ATargetIsNotUnloadedWhileAMessageIsHandedToIt) {
    configure("");
    OpenContainer container(directory(), false);
    std::atomic<bool> enough{false};
    std::thread sender([&] {
        while (!enough) {
            container.send("hello");
        }
    });
    for (int i = 0; i < 20; ++i) {
        const std::size_t before = journal::ofKind("log").size();
        configure(targetLine("recording"));
        container->onCfgUpdate();
        EXPECT_TRUE(waitUntil([&] { return journal::ofKind("log").size() > before; }));
        configure("");
        container->onCfgUpdate();
        EXPECT_EQ(journal::lines().back(), "recording done");
        journal::clear();
    }
    enough = true;
    sender.join();
}

TEST_F(ContainerFanOut, ATargetMayLogFromInsideItsLogAndEveryTargetGetsBothMessages) {
    configure(targetLine("recording") + targetLine("relogging") + targetLine("without_hooks"));
    setenv("SORL_PATH", directory().c_str(), 1);
    sorrel_component* const component = sorrel_create_component("net", SR_ALL, "");
    journal::clear();
    _sorrel(component, SR_INFO, "%s", "hello");
    std::vector<std::string> received;
    for (const PluginEvent& event : journal::ofKind("log")) {
        received.push_back(event.library + ": " + event.componentName + ": " + event.text);
    }
    EXPECT_THAT(received, ElementsAre("recording: net: hello", "relogging: net: hello",
                                      "recording: relogging: again: hello", "relogging: relogging: again: hello",
                                      "without_hooks: relogging: again: hello", "without_hooks: net: hello"));
}
