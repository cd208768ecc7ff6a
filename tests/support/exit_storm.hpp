// Fresh processes that build a logger, log and exit in their own way, a few of them at a time.
#ifndef SORREL_TESTS_EXIT_STORM_HPP
#define SORREL_TESTS_EXIT_STORM_HPP

#include "child_storm.hpp"
#include "config_storm.hpp"
#include "exit_fixture.hpp"
#include "storm_size.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <fcntl.h>

// The process of the test never uses the library: so what it forks is as good as a new process.
class ExitStorm : public ExitFixture {
protected:
    static constexpr int kKinds = 21;
    static constexpr std::size_t kAtATime = 4;

    ExitStorm() { configure(stormConfiguration(0)); }

    // Expects as many processes as this kind of exit has its share of to end as they should, and in silence. The
    // function gets a number that differs between them; it has to end the process with kChildPassed.
    template <class Function>
    void expectExits(Function exits) const {
        const std::string errors = std::string(std::getenv("SORL_PATH")) + "/errors";
        ChildStorm children(kAtATime);
        const int count = (stormCount(2000) + kKinds - 1) / kKinds;
        for (int i = 0; i < count && !children.hasFailures(); ++i) {
            children.start("exit", [&] {
                dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644), STDERR_FILENO);
                exits(i);
                return false;
            });
        }
        EXPECT_THAT(children.finish(), testing::IsEmpty());
        std::ostringstream said;
        said << std::ifstream(errors).rdbuf();
        EXPECT_EQ(said.str(), "");
    }

    static void build() {
        netComponent = buildLogger();
        CSorrel::getInstance_NoSorrel();
    }

    // A component that exists without a logger.
    static void prepareToBuild() { netComponent = new sorrel_component{"net", 0xffffffffU, {}}; }

    // Threads that do something without pause until the process is gone; returns when all have begun.
    template <class Function>
    static void startThreads(Function function) {
        constexpr int kThreads = 3;
        static std::atomic<int> begun{0};
        for (int i = 0; i < kThreads; ++i) {
            std::thread([function] {
                function();
                ++begun;
                for (;;) {
                    function();
                }
            }).detach();
        }
        waitUntil([] { return begun == kThreads; });
    }
    static void startLoggers() {
        startThreads([] { say("storm"); });
    }

    // Has the next operation of that kind stop inside the target for ever.
    static void holdIn(const std::string& operation) {
        expectNotReleased();
        journal::onEvent(operation, [](const PluginEvent&) {
            isHeld = true;
            for (;;) {
                pause();
            }
        });
    }
    static void waitUntilHeld() {
        waitUntil([] { return isHeld.load(); });
    }

    // Has the next operation of that kind exit.
    static void exitIn(const std::string& operation) {
        expectNotReleased();
        journal::onEvent(operation, [](const PluginEvent&) { std::exit(kChildPassed); });
    }

    // The busy target is the first one, "recording".
    static void expectNotReleased() {
        journal::onEvent("destroy", [](const PluginEvent& event) {
            expectAtExit(event.library != "recording", "a busy target is released");
        });
    }

    static inline std::atomic<bool> isHeld{false}; // a thread is inside a target, and stays there
};

#endif // SORREL_TESTS_EXIT_STORM_HPP
