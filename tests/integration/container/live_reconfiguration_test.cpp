// The whole of it: an application logs, targets receive, and editing one file changes both while it runs.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <sorrel/component.hpp>
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class LiveReconfiguration : public ContainerFixture {
protected:
    LiveReconfiguration() { setenv("SORL_PATH", directory().c_str(), 1); }

    // Rewrites the file of the running logger and waits until it is re-read to its end.
    void rewrite(const std::string& text) {
        const int before = readsOf(defaultFile());
        configure(text);
        EXPECT_TRUE(waitUntil([&] { return readsOf(defaultFile()) > before; }));
        waitForTheReReadToEnd();
    }

    // A re-read holds the container's lock from its message on, and creating a component takes it.
    static void waitForTheReReadToEnd() { sorrel_create_component("waiting", SR_INFO, ""); }

    static std::vector<std::string> messages() {
        std::vector<std::string> lines;
        for (const PluginEvent& event : journal::ofKind("log")) {
            lines.push_back(event.library + ": " + event.text);
        }
        journal::clear();
        return lines;
    }
};

} // namespace

TEST_F(LiveReconfiguration, AChangedMaskLetsMoreMessagesPass) {
    configure(targetLine("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "64=INFO,128=DEBUG");
    _sorrel(net, SR_INFO, "one");
    _sorrel(net, SR_DEBUG, "two");
    EXPECT_THAT(messages(), ElementsAre("recording: one"));
    rewrite(targetLine("recording") + "component=net,11000000\n");
    _sorrel(net, SR_INFO, "three");
    _sorrel(net, SR_DEBUG, "four");
    EXPECT_THAT(messages(), ElementsAre("recording: three", "recording: four"));
    rewrite(targetLine("recording") + "component=net,0\n");
    _sorrel(net, SR_INFO, "five");
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LiveReconfiguration, ASecondTargetIsAddedAndRemoved) {
    configure(targetLine("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "64=INFO");
    rewrite(targetLine("recording") + targetLine("recording_b"));
    _sorrel(net, SR_INFO, "both");
    EXPECT_THAT(messages(), ElementsAre("recording: both", "recording_b: both"));
    rewrite(targetLine("recording"));
    _sorrel(net, SR_INFO, "one");
    EXPECT_THAT(messages(), ElementsAre("recording: one"));
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
}

TEST_F(LiveReconfiguration, WithoutAFileAtTheStartEveryMessageIsDropped) {
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "");
    _sorrel(net, SR_INFO, "lost");
    EXPECT_THAT(journal::events(), IsEmpty());
}

TEST_F(LiveReconfiguration, TheNameOfTheApplicationBringsItsOwnFileWhichIsWatchedFromThenOn) {
    configure(targetLine("recording"));
    configureApp("player", targetLine("recording_b"));
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "64=INFO");
    sorrel_set_applicationname("player");
    _sorrel(net, SR_INFO, "hello");
    EXPECT_THAT(messages(), ElementsAre("recording_b: hello"));
    EXPECT_TRUE(
        diagnostics().waitFor("logtarget-container: Watching application-specific config-file \"player\" for changes"));
    configureApp("player", targetLine("recording"));
    EXPECT_TRUE(journal::waitFor([](const PluginEvent& event) { return event.kind == "done"; }));
    waitForTheReReadToEnd();
    _sorrel(net, SR_INFO, "hello");
    EXPECT_THAT(messages(), ElementsAre("recording: hello"));
}

TEST_F(LiveReconfiguration, ThreadsLogWhileTheFileIsRewritten) {
    configure(targetLine("recording"));
    sorrel_component* const net = sorrel_create_component("net", SR_INFO, "64=INFO");
    std::atomic<bool> enough{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!enough) {
                _sorrel(net, SR_INFO, "hello");
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        rewrite(targetLine("recording") + targetLine("recording_b") + "component=net,1000000\n");
        rewrite(targetLine("recording_b"));
        EXPECT_THAT(journal::ofKind("destroy"), SizeIs(1));
        journal::clear();
        rewrite(targetLine("recording"));
        journal::clear();
    }
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(LiveReconfiguration, KeepsBothNestingsOfTheTwoLocksWithoutADeadlock) {
    const std::string lines = "component=net,1000000\ncomponent=audio,1000000\n";
    configure(lines);
    std::atomic<bool> enough{false};
    CSorrel::getInstance();
    std::thread creator([&] {
        while (!enough) {
            sorrel_create_component("net", SR_INFO, "64=INFO");
        }
    });
    for (int i = 0; i < 10; ++i) {
        rewrite(lines);
    }
    enough = true;
    creator.join();
    EXPECT_EQ(sorrel::sorrel_get_component_level("net"), 0x40U);
}

TEST_F(LiveReconfiguration, AMessageFromTheDoneFunctionOfALibraryDoesNoHarm) {
    configure(targetLine("logs_everywhere") + targetLine("recording"));
    sorrel_create_component("net", SR_INFO, "");
    rewrite(targetLine("recording"));
    std::vector<std::string> fromDestroyOn = journal::lines();
    while (!fromDestroyOn.empty() && fromDestroyOn.front() != "logs_everywhere destroy") {
        fromDestroyOn.erase(fromDestroyOn.begin());
    }
    EXPECT_THAT(fromDestroyOn,
                ElementsAre("logs_everywhere destroy", "recording log logs_everywhere: dynamic_module_done",
                            "logs_everywhere done", "recording isSyslog", "recording component"));
}

TEST_F(LiveReconfiguration, ATargetMayLogFromAnywhereDuringAReRead) {
    configure(targetLine("recording") + "component=net,1\n");
    sorrel_create_component("waiting", SR_INFO, "");
    journal::clear();
    rewrite(targetLine("logs_everywhere") + targetLine("recording") + "component=net,11\n");
    std::vector<std::string> received;
    for (const PluginEvent& event : journal::ofKind("log")) {
        if (event.library == "recording") {
            received.push_back(event.text.substr(event.text.find(' ') + 1));
        }
    }
    EXPECT_THAT(received, ElementsAre("dynamic_module_init", "createObject", "constructor", "getName",
                                      "onComponentAdded", "isSyslogTarget", "onComponentAdded"))
        << "the last one is for the component that the test creates";
}

TEST_F(LiveReconfiguration, AtTheEndOfTheProcessTheWorkerEndsAndTheTargetsAreReleased) {
    configure(targetLine("recording"));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork(); // before anything is built here
    ASSERT_NE(child, -1);
    if (child == 0) {
        journal::echoTo(ends[1]);
        _sorrel(sorrel_create_component("net", SR_INFO, ""), SR_INFO, "hello");
        std::exit(EXIT_SUCCESS);
    }
    close(ends[1]);
    std::string seen;
    char buffer[256];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        seen.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(seen, "recording init null\nrecording factory\nrecording create LogTarget\nrecording getName\n"
                    "recording isSyslog\nrecording component\nrecording log hello\nrecording factory\n"
                    "recording destroy\nrecording done\n");
    EXPECT_EQ(diagnostics().count("logtarget-container: got exit message - ending thread."), 1);
}
