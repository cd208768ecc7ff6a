// Thousands of forks out of a process whose threads log without pause and whose configuration changes: no child hangs,
// each gets its messages through, and the parent notices nothing.
#include "child_storm.hpp"
#include "config_storm.hpp"
#include "fork_fixture.hpp"
#include "refused_inotify.hpp"
#include "storm_size.hpp"
#include "storm_standstill.hpp"

#include <gmock/gmock.h>

#include <atomic>

using testing::IsEmpty;

namespace {

constexpr int kForkers = 2;
constexpr int kForks = 10000;
constexpr std::size_t kChildrenOfEach = 2; // at a time
constexpr int kForksPerReread = 10;
constexpr int kLoggers = 2;
constexpr int kMessages = 5;
constexpr std::chrono::seconds kPatience(kChildPatienceSeconds + 20);

std::atomic<int> heard{0};        // messages of this process that reached the target, if it is a child
std::atomic<bool> isOver{false};  // no more storm
std::atomic<int> heardOfStorm{0}; // messages of the storm that reached the target

// Keeps no event, since there would be millions.
void countMessage(const PluginEvent& event) {
    if (event.library == "recording") {
        ++(event.text == "from the child" && event.processId == getpid() ? heard : heardOfStorm);
    }
    journal::clear();
}

class ForkStorm : public ForkFixture {
protected:
    void build() {
        overwriteOnce();
        const std::string count = countingScript("exit $n");
        const int descriptors = endOfChild(startChild([&] { return execute(count); }));
        m_script = countingScript("exit $((n - " + std::to_string(descriptors - kChildPassed) + "))");
        net = buildLogger();
        journal::onEvent("log", countMessage);
    }

    // Until it is over: messages, and whatever else takes a lock.
    void startStorm() {
        for (int i = 0; i < kLoggers; ++i) {
            m_storm.emplace_back([this] {
                while (!isOver) {
                    say("storm");
                }
            });
        }
        m_storm.emplace_back([this] {
            while (!isOver) {
                sorrel_create_component("storm", SR_INFO, "64=INFO");
                sorrel_enter_function(net, "storm");
                componentNames();
                sorrel_leave_function(net);
            }
        });
        waitUntil([] { return heardOfStorm > 0; });
    }

    void endStorm() {
        isOver = true;
        for (std::thread& thread : m_storm) {
            thread.join();
        }
        journal::onEvent("log", nullptr);
        journal::clear();
    }

    // One of every kind of child after the other.
    void forkManyTimes(ChildStorm& children, int times, StandstillGuard& guard) const;

private:
    struct Kind {
        const char* name;
        bool (ForkStorm::*live)() const;
    };

    void overwriteOnce() const { configure(stormConfiguration(0)); }

    // Counts the descriptors of a shell and does something with the number.
    static std::string countingScript(const std::string& end) {
        return R"(n=0; for fd in /proc/$$/fd/*; do [ -e "$fd" ] && n=$((n + 1)); done; )" + end;
    }

    // Replaces the process by a shell.
    static bool execute(const std::string& script) {
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        return false;
    }

    bool logs() const {
        for (int i = 0; i < kMessages; ++i) {
            say("from the child");
        }
        return heard == kMessages;
    }
    bool logsFromAThread() const {
        bool passed = false;
        std::thread([&] { passed = logs(); }).join();
        return passed;
    }
    bool logsAndExits() const { std::exit(logs() ? kChildPassed : 1); }
    bool onlyExits() const { std::exit(kChildPassed); }
    bool createsAComponent() const {
        sorrel_component* const component = sorrel_create_component("of the child", SR_INFO, "");
        return sorrel::sorrel_get_component_by_name("of the child") == component && logs();
    }
    bool logsUnwatched() const {
        refuseInotify = true;
        return logs() && hasNoWatch();
    }
    bool logsInAGrandchild() const {
        return passesInChild([this] { return logs(); });
    }

    // The program passes if it has as many descriptors as one that was executed when there was no logger.
    bool executes() const { return execute(m_script); }
    bool logsAndExecutes() const { return logs() && executes(); }

    std::string m_script;
    std::vector<std::thread> m_storm;
};

void ForkStorm::forkManyTimes(ChildStorm& children, int times, StandstillGuard& guard) const {
    static constexpr Kind kKinds[] = {
        {"executes", &ForkStorm::executes}, // the only one that allocates nothing
        {"logs", &ForkStorm::logs},
        {"logs from a thread", &ForkStorm::logsFromAThread},
        {"logs and exits", &ForkStorm::logsAndExits},
        {"only exits", &ForkStorm::onlyExits},
        {"creates a component", &ForkStorm::createsAComponent},
        {"logs unwatched", &ForkStorm::logsUnwatched},
        {"logs in a grandchild", &ForkStorm::logsInAGrandchild},
        {"logs and executes", &ForkStorm::logsAndExecutes},
    };
    const std::size_t kinds = kChildrenMayAllocate ? std::size(kKinds) : 1;
    StandstillGuard::Pulse pulse(guard, "forks");
    for (int i = 0; i < times && !children.hasFailures(); ++i) {
        if (i % kForksPerReread == 0) {
            overwriteConfiguration(static_cast<unsigned int>(i / kForksPerReread));
        }
        const Kind& kind = kKinds[static_cast<std::size_t>(i) % kinds];
        children.start(kind.name, [&] { return (this->*kind.live)(); });
        pulse.beat();
    }
    children.finish();
}

} // namespace

TEST_F(ForkStorm, ChildrenPassAndTheParentIsLeftAlone) {
    const int forksOfEach = stormCount(kForks) / kForkers;
    build();
    const std::map<int, std::string> descriptors = openDescriptors();
    std::vector<ChildStorm> children(kForkers, ChildStorm(kChildrenOfEach));
    {
        StandstillGuard guard(kPatience, kPatience);
        startStorm();
        std::vector<std::thread> forkers;
        for (ChildStorm& ownChildren : children) {
            forkers.emplace_back([&] { forkManyTimes(ownChildren, forksOfEach, guard); });
        }
        for (std::thread& forker : forkers) {
            forker.join();
        }
        endStorm();
    }
    for (ChildStorm& ownChildren : children) {
        EXPECT_THAT(ownChildren.finish(), IsEmpty());
    }
    expectParentStillWatches();
    waitUntil([&] { return openDescriptors() == descriptors; }); // the worker has closed the file
    EXPECT_EQ(openDescriptors(), descriptors);
}
