// Targets that throw: the locks are free afterwards, what was there still works, and the caller gets the exception.
#include "container_fixture.hpp"
#include "logger_fixture.hpp"
#include "watchdog.hpp"

#include <gmock/gmock.h>
#include <stdexcept>

using testing::Contains;
using testing::SizeIs;

namespace {

// Whether another thread gets a message through.
bool canLogFromAnotherThread(const std::string& text) {
    sorrel_component component{"other", 0xffffffffU, {}};
    std::thread([&] {
        try {
            _sorrel(&component, SR_INFO, "%s", text.c_str());
        } catch (const std::runtime_error&) { // from the target that throws, which comes behind the other one
        }
    }).join();
    return !journal::texts().empty() && journal::texts().back() == text;
}

// The configured logger, with a target that throws from one of its operations behind a sound one.
class ThrowingTarget : public LoggerFixture {
protected:
    void configureThrowing(const std::string& kind) const {
        configure(target("recording") + target("throwing", "throw=" + kind));
    }

    template <class Call>
    static void expectThrows(const std::string& kind, Call call) {
        try {
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "throwing: " + kind);
        }
        EXPECT_TRUE(canLogFromAnotherThread("after it"));
    }

private:
    Watchdog m_watchdog;
};

} // namespace

TEST_F(ThrowingTarget, OfAMessageIsMetByItsCaller) {
    configureThrowing("log");
    sorrel_component* const component = sorrel_create_component("net", SR_ALL, "");
    expectThrows("log", [&] { _sorrel(component, SR_INFO, "hello"); });
    expectThrows("log", [&] { sor_syslog(component, SR_INFO, "hello"); });
    expectThrows("log", [&] { sorrel_dump(component, SR_INFO, "a", 1); });
    EXPECT_THAT(textsOf("recording"), Contains("hello").Times(2));
}

TEST_F(ThrowingTarget, OfANewComponentIsMetByItsCreatorAndTheComponentIsRegistered) {
    configure(target("recording"));
    CSorrel::getInstance();
    configureThrowing("component");
    sorrel_set_applicationname("player"); // re-reads
    expectThrows("component", [] { sorrel_create_component("net", SR_INFO, ""); });
    EXPECT_THAT(componentNames(), Contains("net"));
    ASSERT_NE(sorrel::sorrel_get_component_by_name("net"), nullptr);
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("net")->mask, SR_INFO->mask);
}

TEST_F(ThrowingTarget, OfANameIsMetByTheOneWhoNames) {
    configureThrowing("appname");
    CSorrel::getInstance();
    expectThrows("appname", [] { sorrel_set_applicationname("player"); });
    EXPECT_EQ(CSorrel::getInstance()->getAppname(), "player");
    expectThrows("appname", [] { sorrel_set_applicationname("recorder"); });
}

TEST_F(ThrowingTarget, InAReReadIsMetByTheOneWhoNamesAndTheOthersStay) {
    for (const std::string kind : {"create", "getName", "isSyslog"}) {
        configure(target("recording"));
        sorrel_set_applicationname(("before " + kind).c_str());
        configureThrowing(kind);
        expectThrows(kind, [&] { sorrel_set_applicationname(("player " + kind).c_str()); });
        configure(target("recording"));
        if (kind == "isSyslog") { // the only one that was loaded
            sorrel_set_applicationname("after");
            EXPECT_THAT(journal::lines(), Contains("recording appname after"));
        }
    }
}

TEST_F(ThrowingTarget, InAReReadOfANewNameLeavesTheNameForTheNextReRead) {
    configure(target("recording"));
    sorrel_component* const component = sorrel_create_component("net", SR_ALL, "");
    configureApp("player", target("recording") + target("throwing", "throw=create"));
    expectThrows("create", [] { sorrel_set_applicationname("player"); });
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(0));
    EXPECT_TRUE(waitUntil([&] { // the worker follows the file of the new name
        configureApp("player", target("recording"));
        return journal::waitFor([](const PluginEvent& event) { return event.kind == "appname"; },
                                std::chrono::milliseconds(100));
    }));
    EXPECT_EQ(journal::ofKind("appname").front().text, "player");
    _sorrel(component, SR_INFO, "afterwards");
    EXPECT_EQ(textsOf("recording").back(), "afterwards");
}

TEST_F(ThrowingTarget, InItsInitFunctionIsMetByTheOneWhoNames) {
    configure(target("recording"));
    CSorrel::getInstance();
    configure(target("recording") + target("throwing_init"));
    expectThrows("init", [] { sorrel_set_applicationname("player"); });
    configure(target("recording"));
    sorrel_set_applicationname("recorder");
    EXPECT_THAT(journal::lines(), Contains("recording appname recorder"));
}

TEST_F(ThrowingTarget, InTheFirstReadIsMetByTheFirstCallerAndTheNextOneTriesAgain) {
    configureThrowing("isSyslog");
    EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
    EXPECT_THAT(journal::lines(), Contains("recording destroy"));
    EXPECT_THAT(journal::lines(), Contains("throwing destroy"));
    configure(target("recording"));
    EXPECT_TRUE(canLogFromAnotherThread("hello"));
}

TEST_F(ThrowingTarget, InAMessageOfItsOwnIsMetThroughTheOuterOne) {
    configure(target("recording") + target("throwing", "throw=log"));
    sorrel_component* const component = sorrel_create_component("net", SR_ALL, "");
    int depth = 0;
    const ScopedHook hook("log", [&](const PluginEvent& event) {
        if (event.library == "recording" && ++depth < 4) {
            _sorrel(component, SR_INFO, "inner");
        }
    });
    EXPECT_THROW(_sorrel(component, SR_INFO, "hello"), std::runtime_error);
    EXPECT_EQ(depth, 4);
    EXPECT_TRUE(canLogFromAnotherThread("after it"));
}

namespace {

// What is thrown on the worker.
class ThrowingOnTheWorker : public ContainerFixture, public testing::WithParamInterface<std::string> {
protected:
    ThrowingOnTheWorker() { configure(targetLine("recording")); }

    static std::size_t targetCount(OpenContainer& container) {
        const std::lock_guard<sorrel::CLogTargetContainer> lock(*container);
        return container.targets.size();
    }
};

} // namespace

TEST_P(ThrowingOnTheWorker, IsSwallowedAndTheNextRewriteIsReRead) {
    OpenContainer container(directory(), true);
    const std::string line =
        GetParam() == "init" ? targetLine("throwing_init") : targetLine("throwing", "throw=" + GetParam());
    for (int i = 1; i <= 3; ++i) {
        configure(targetLine("recording") + line + "component=net,1\n");
        ASSERT_TRUE(waitForWorkerRereads(container, 2 * i - 1));
        EXPECT_TRUE(waitUntil([&] { return isLockFree(*container); }));
        configure(targetLine("recording"));
        ASSERT_TRUE(waitForWorkerRereads(container, 2 * i));
    }
    EXPECT_EQ(targetCount(container), 1U);
    container.send("hello");
    EXPECT_EQ(journal::lines().back(), "recording log hello");
    for (const SyslogRecord& record : diagnostics().records()) {
        EXPECT_GE(record.priority, 6) << record.text << ": nothing is said about it";
    }
}

INSTANTIATE_TEST_SUITE_P(From, ThrowingOnTheWorker, testing::Values("init", "create", "getName", "isSyslog"));
