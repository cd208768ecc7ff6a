// Targets that use the logger from inside each of their operations.
#include "logger_fixture.hpp"
#include "watchdog.hpp"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <memory>

using testing::Contains;
using testing::IsSupersetOf;

namespace {

// Set when a test begins; called inside each operation, but not inside itself. Never destroyed, as what it refers to:
// the worker may still be in an operation when the test is over.
auto& doInOperation = *new std::function<void(const std::string&)>([](const std::string&) {});

void act(const std::string& kind) {
    thread_local bool acting = false;
    if (!std::exchange(acting, true)) {
        doInOperation(kind);
        acting = false;
    }
}

// Does the action of the test in each operation of a target.
class BusyTarget : public LoggerFixture {
protected:
    const std::vector<std::string> kinds{"init", "factory",   "create",  "getName", "isSyslog",
                                         "log",  "component", "appname", "destroy", "done"};

    BusyTarget() {
        for (const std::string& kind : kinds) {
            m_hooks.push_back(std::make_unique<ScopedHook>(kind, [kind](const PluginEvent&) { act(kind); }));
        }
    }

    void runThroughAll() {
        configure(target("recording"));
        sorrel_component* const component = sorrel_create_component("net", SR_ALL, "");
        _sorrel(component, SR_INFO, "hello");
        sorrel_set_applicationname("player");
        configure("");
        CSorrel::getInstance()->setApplicationname("recorder"); // re-reads
        configure(target("recording"));
        sorrel_set_applicationname("another");
        _sorrel(component, SR_INFO, "the end");
    }

private:
    Watchdog m_watchdog;
    std::vector<std::unique_ptr<ScopedHook>> m_hooks;
};

} // namespace

TEST_F(BusyTarget, MayCreateComponentsInEachOperation) {
    doInOperation = [](const std::string& kind) {
        const sorrel_component* const component = sorrel_create_component(("by " + kind).c_str(), SR_INFO, "8=ERR");
        EXPECT_EQ(sorrel::sorrel_get_component_by_name("by " + kind), component);
    };
    runThroughAll();
    std::vector<std::string> expected;
    for (const std::string& kind : kinds) {
        expected.push_back("by " + kind);
    }
    EXPECT_THAT(componentNames(), IsSupersetOf(expected));
    EXPECT_THAT(textsOf("recording"), Contains("the end"));
}

TEST_F(BusyTarget, MayLogInEachOperation) {
    doInOperation = [](const std::string& kind) {
        static sorrel_component own{"own", 0xffffffffU, {}};
        _sorrel(&own, SR_INFO, "by %s", kind.c_str());
    };
    runThroughAll();
    for (const char* const kind : {"getName", "isSyslog", "log", "component", "appname", "destroy"}) {
        EXPECT_THAT(textsOf("recording"), Contains(std::string("by ") + kind));
    }
}

TEST_F(BusyTarget, MayNameTheApplicationInEachOperation) {
    static auto& named = *new std::vector<std::string>;
    static const std::thread::id kTestThread = std::this_thread::get_id();
    doInOperation = [](const std::string& kind) {
        if (std::find(named.begin(), named.end(), kind) == named.end()) {
            named.push_back(kind);
            const std::string name = sorrel_set_applicationname(("by " + kind).c_str());
            if (std::this_thread::get_id() == kTestThread) { // the test names it while the worker is in a target
                EXPECT_EQ(name, "by " + kind);
                EXPECT_EQ(CSorrel::getInstance()->getAppname(), "by " + kind);
            }
        }
    };
    runThroughAll();
    EXPECT_EQ(named.size(), kinds.size());
    EXPECT_THAT(textsOf("recording"), Contains("the end"));
}
