// The logger of the process, through the C interface, with a forked child, up to the end of both processes.
#include "child_process.hpp"
#include "plugin_journal.hpp"
#include "plugin_path.hpp"
#include "scenario.hpp"

#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace {

const TempDir* theFiles = nullptr;
Footprint beforeLogger;
pid_t firstProcess = 0;

std::string configuration() {
    return "target=" + pluginPath("recording") + "\ncomponent=net,1111111\ncomponent=other,1\n";
}

bool hasText(const std::string& text) {
    const std::vector<std::string> texts = journal::texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

void logFrom(const char* text) {
    step("log", [&] { _sorrel(sorrel_create_component("net", SR_ALL, "1=ONE"), SR_INFO, "%s", text); });
}

// Makes the thread's record now, since that cannot fail: thread-locals end the process then, by their nature.
void makeThreadRecord() {
    failingCalls::setCounting(false);
    CSorrel::thread_data.depth = 0;
    failingCalls::setCounting(true);
}

void logFromThread() {
    std::thread([] {
        makeThreadRecord();
        step("begin thread", [] { sorrel_init(nullptr, "helper"); });
        step("enter", [] { sorrel_enter_function(sorrel_create_component("net", SR_ALL, ""), "function"); });
        logFrom("from a thread");
        step("leave", [] { sorrel_leave_function(sorrel_create_component("net", SR_ALL, "")); });
    }).join();
}

// The child ends as the parent does, through exit().
void logFromChild() {
    const pid_t child = fork();
    if (child == 0) {
        logFrom("from the child");
        std::exit(kChildPassed);
    }
    if (endOfChild(child) != kChildPassed) {
        problem("the child did not end well");
    }
}

void use() {
    makeThreadRecord();
    logFrom("hello");
    settle(beforeLogger);
    step("name", [] { sorrel_set_applicationname("player"); });
    settle(beforeLogger);
    theFiles->write("sorrel-player.cfg", configuration());
    settle(beforeLogger);
    logFromThread();
    logFromChild();
}

// Whatever has failed before: another thread names the application, which re-reads, and the target is there.
void expectWorksForOthers() {
    journal::clear();
    std::thread([] {
        step("name by another thread", [] { sorrel_set_applicationname("afterwards"); });
        step("create by another thread", [] { sorrel_create_component("new", SR_ALL, ""); });
        logFrom("afterwards");
    }).join();
    if (!hasText("afterwards") || journal::ofKind("component").size() < 4) {
        problem("the logger does not work afterwards");
    }
}

// Runs after the logger's end, since it was registered before the logger was built.
void expectEnded() {
    if (getpid() != firstProcess) {
        return;
    }
    failingCalls::setCounting(false);
    constexpr long kAnyNumber = 1000000; // components, and names, stay for good
    expectNothingLeft(beforeLogger, kAnyNumber);
    if (!hasProblems()) {
        failingCalls::report("passed");
    }
}

} // namespace

void runLoggerScenario(const TempDir& files) {
    theFiles = &files;
    firstProcess = getpid();
    files.write("sorrel.cfg", configuration());
    files.write("sorrel-player.cfg", configuration());
    setenv("SORL_PATH", files.path().c_str(), 1);
    std::atexit(expectEnded);
    beforeLogger = footprint();
    use();
    failingCalls::setCounting(false);
    expectWorksForOthers();
    settle(beforeLogger); // at exit a worker that is at work is waited for only a short while
    failingCalls::setCounting(true);
    std::exit(EXIT_SUCCESS);
}
