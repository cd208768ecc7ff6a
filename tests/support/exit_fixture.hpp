// A process that exits while it logs.
#ifndef SORREL_TESTS_EXIT_FIXTURE_HPP
#define SORREL_TESTS_EXIT_FIXTURE_HPP

#include "child_process.hpp"
#include "dial_fixture.hpp"
#include "sanitizers.hpp"

#include <algorithm>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

// What the target "recording" sees of its end.
inline constexpr char kReleased[] = "recording factory\nrecording destroy\nrecording done\n";

// Does something when the static objects of this program are destroyed, which is after the logger.
struct LastWords {
    LastWords() = default;
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;
    ~LastWords() {
        if (speak != nullptr) {
            speak();
        }
    }

    void (*speak)() = nullptr;
};

inline LastWords lastWords;

inline sorrel_component* netComponent = nullptr;

inline void expectAtExit(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "wrong: %s\n", what);
        _exit(EXIT_FAILURE);
    }
}

inline void say(const char* text) {
    _sorrel(netComponent, SR_INFO, "%s", text);
}

inline void logInEveryWay() {
    say("late");
    sor_syslog(netComponent, SR_INFO, "late");
    sorrel_dump(netComponent, SR_INFO, "late", 4);
    sorrel_init(netComponent, "late");
    sorrel_init_nosorrel("late");
    sorrel_enter_function(netComponent, "late");
    sorrel_leave_function(netComponent);
    sorrel_done(netComponent);
}

inline void expectNothingIsFound() {
    std::vector<std::string> names;
    sorrel::sorrel_get_component_names(names);
    expectAtExit(names.empty(), "names");
    std::vector<std::pair<unsigned int, std::string>> descriptions;
    sorrel::sorrel_get_level_descriptions("net", descriptions);
    expectAtExit(descriptions.empty(), "descriptions");
    expectAtExit(sorrel::sorrel_get_component_by_name("net") == nullptr, "component by name");
    expectAtExit(sorrel::sorrel_get_component_level("net") == 0, "component level");
    expectAtExit(sorrel::sorrel_get_name_by_component(netComponent) == "net", "name by component");
}

inline void expectNothingIsChanged() {
    const unsigned int mask = netComponent->mask;
    sorrel::sorrel_set_component_level("net", 1);
    expectAtExit(CSorrel::getInstance()->updateComponentLevel("net", "1") == 0, "update of a level");
    expectAtExit(netComponent->mask == mask, "mask");
    expectAtExit(sorrel_create_component("late", SR_INFO, "") == &CSorrel::ms_OOMFallbackComp, "creation");
    expectAtExit(std::string(sorrel_set_applicationname("late")) == "late", "application name");
    expectAtExit(std::string(sorrel_set_applicationname_nosorrel("late")) == "late", "plain application name");
}

inline void expectAccessorsWork() {
    expectAtExit(CSorrel::getInstance() != nullptr, "logger");
    expectAtExit(CSorrel::getInstance_NoSorrel() != nullptr, "plain logger");
    CSorrel::getInstance()->lockComponents();
    CSorrel::getInstance()->unlockComponents();
    expectAtExit(CSorrel::getInstance()->getAppname() == "[no-appname-set]", "stored name");
    expectAtExit(sorrel_level_to_prio(SR_INFO) == 6, "priority");
}

inline void useEverything() {
    logInEveryWay();
    expectNothingIsFound();
    expectNothingIsChanged();
    expectAccessorsWork();
}

inline void useEverythingAndTell() {
    useEverything();
    std::fputs("all silent\n", stderr);
}

class ExitFixture : public DialFixture {
protected:
    // For the thread sanitizer the lock under which a logger is built stays locked in a forked child, where another
    // thread than the first one builds. There, death tests execute the program again.
    static void startFromTheBeginning() {
        if (kThreadSanitized) {
            GTEST_FLAG_SET(death_test_style, "threadsafe");
        }
    }

    // Forks as raw clone(2) does, so that no fork handler sees it. The loader of the child would wait for a thread that
    // was looking for a function at that moment: the others sleep, the worker too.
    static pid_t cloneUnseen() {
        expectAtExit(waitUntil([] { return isWorkerWaiting() && doOtherThreadsSleep(); }), "all others sleep");
        return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    }

    // Has the worker read the file again, up to where it waits for a lock.
    void blockWorker() const {
        int worker = 0;
        const auto findWorker = [&worker] {
            const std::set<int> ids = threadIds();
            const auto found = std::find_if(ids.begin(), ids.end(), waitsForEvents);
            worker = found != ids.end() ? *found : 0;
            return worker != 0;
        };
        expectAtExit(waitUntil(findWorker), "the worker waits for events");
        configure(target("recording") + "component=dial,1\n");
        expectAtExit(waitUntil([worker] { return waitsForLock(worker); }), "the worker waits for a lock");
    }

    // In the child of a death test: the calls of the targets go to its standard error from now on.
    static void start() {
        alarm(kChildPatienceSeconds);
        netComponent = buildLogger();
        CSorrel::getInstance_NoSorrel();
        journal::clear();
        journal::echoTo(STDERR_FILENO);
    }
};

#endif // SORREL_TESTS_EXIT_FIXTURE_HPP
