// Targets that throw: the locks are free afterwards, what was there still works, and the caller gets the exception.
#include "container_fixture.hpp"
#include "logger_fixture.hpp"
#include "watchdog.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <pthread.h>
#include <stdexcept>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
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

// Throws the name of the library, each time that it is called for one of these.
journal::Hook throwIn(const std::vector<std::string>& libraries) {
    return [libraries](const PluginEvent& event) {
        if (std::find(libraries.begin(), libraries.end(), event.library) != libraries.end()) {
            throw std::runtime_error(event.library);
        }
    };
}

// A container of the test's own, whose entries can be looked at. "recording" comes first in each walk, and throws.
class ThrowingSweep : public ContainerFixture {
protected:
    ThrowingSweep() : m_container(directory(), false) {
        configure(targetLine("recording") + targetLine("recording_b") + targetLine("without_hooks"));
        m_container->onCfgUpdate();
        journal::clear();
    }

    template <class Call>
    void expectThrownBy(const std::string& library, Call call) {
        try {
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), library);
        }
        EXPECT_TRUE(isLockFree(*m_container));
    }

    void expectReReadThrownBy(const std::string& library) {
        expectThrownBy(library, [&] { m_container->onCfgUpdate(); });
    }

    void expectToReceive(const std::vector<std::string>& libraries) {
        std::vector<std::string> lines(libraries);
        std::for_each(lines.begin(), lines.end(), [](std::string& line) { line += " log hello"; });
        journal::clear();
        m_container.send("hello");
        EXPECT_EQ(journal::lines(), lines);
    }

    // It is to be unloaded, as the one behind it.
    void expectOnlyTheThrowerStays(const std::string& kind) {
        configure(targetLine("without_hooks"));
        const ScopedHook hook(kind, throwIn({"recording"}));
        for (int i = 0; i < 3; ++i) {
            expectReReadThrownBy("recording");
            EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
            expectToReceive({"recording", "without_hooks"});
        }
    }

    void expectTheNextOneUnloadsIt() {
        m_container->onCfgUpdate();
        EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
        expectToReceive({"without_hooks"});
    }

    OpenContainer m_container;
};

using ThrowingWhenNamed = ThrowingSweep; // the walk that tells all targets the name

} // namespace

TEST_F(ThrowingSweep, ATargetThatCannotBeNamedStaysLoadedAndUsableAndTheOthersGo) {
    expectOnlyTheThrowerStays("getName");
    expectTheNextOneUnloadsIt();
}

TEST_F(ThrowingSweep, ATargetThatCannotBeDestroyedStaysLoadedAndUsableAndTheOthersGo) {
    expectOnlyTheThrowerStays("destroy");
    expectTheNextOneUnloadsIt();
}

TEST_F(ThrowingSweep, ATargetWhoseFactoryIsNotGivenStaysLoadedAndUsableAndTheOthersGo) {
    expectOnlyTheThrowerStays("factory");
    expectTheNextOneUnloadsIt();
}

TEST_F(ThrowingSweep, OfSeveralExceptionsTheFirstReachesTheCaller) {
    configure("");
    const ScopedHook hook("destroy", throwIn({"recording", "recording_b"}));
    expectReReadThrownBy("recording");
    expectToReceive({"recording", "recording_b"});
}

TEST_F(ThrowingSweep, ATargetThatDoesNotSayWhetherItWritesToSyslogKeepsNoneBehindItLoaded) {
    const ScopedHook hook("isSyslog", throwIn({"recording"}));
    configure(targetLine("recording") + targetLine("without_hooks"));
    expectReReadThrownBy("recording");
    expectToReceive({"recording", "without_hooks"});
    configure(targetLine("recording")); // the one behind it was asked, and so may go now
    expectReReadThrownBy("recording");
    expectToReceive({"recording"});
    configure("");
    m_container->onCfgUpdate();
    expectToReceive({});
}

TEST_F(ThrowingSweep, WhetherATargetWritesToSyslogIsWhatTheOthersSay) {
    const ScopedHook hook("isSyslog", throwIn({"claims_syslog"}));
    configure(targetLine("claims_syslog") + targetLine("claims_syslog_b"));
    expectReReadThrownBy("claims_syslog");
    EXPECT_TRUE(m_container->hasSyslogTarget());
    configure(targetLine("claims_syslog"));
    expectReReadThrownBy("claims_syslog");
    EXPECT_FALSE(m_container->hasSyslogTarget());
}

TEST_F(ThrowingSweep, AThreadThatEndsInATargetGoesToNoOther) {
    const ScopedHook hook("isSyslog", [](const PluginEvent&) { pthread_exit(nullptr); });
    std::thread([&] { m_container->onCfgUpdate(); }).join();
    EXPECT_THAT(journal::lines(), ElementsAre("recording isSyslog"));
    EXPECT_TRUE(isLockFree(*m_container));
    expectToReceive({"recording", "recording_b", "without_hooks"});
}

TEST_F(ThrowingWhenNamed, TheTargetsBehindItAreToldTheName) {
    const ScopedHook hook("appname", throwIn({"recording"}));
    for (const std::string name : {"player", "recorder"}) {
        journal::clear();
        expectThrownBy("recording", [&] { m_container->setAppname(name); });
        EXPECT_THAT(journal::lines(), IsSupersetOf({"recording appname " + name, "recording_b appname " + name,
                                                    "without_hooks appname " + name}));
    }
}

TEST_F(ThrowingWhenNamed, OfSeveralExceptionsTheFirstReachesTheCaller) {
    const ScopedHook sweep("isSyslog", throwIn({"without_hooks"}));
    const ScopedHook hook("appname", throwIn({"recording", "recording_b"}));
    expectThrownBy("without_hooks", [&] { m_container->setAppname("player"); });
}

TEST_F(ThrowingWhenNamed, AllTargetsAreToldTheNameAlsoWhenTheSweepHasThrown) {
    const ScopedHook hook("isSyslog", throwIn({"recording"}));
    expectThrownBy("recording", [&] { m_container->setAppname("player"); });
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(3));
    expectReReadThrownBy("recording");
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(3)) << "once is enough";
}

TEST_F(ThrowingWhenNamed, AThreadThatEndsInATargetGoesToNoOther) {
    const ScopedHook hook("appname", [](const PluginEvent&) { pthread_exit(nullptr); });
    std::thread([&] { m_container->setAppname("player"); }).join();
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(1));
    EXPECT_TRUE(isLockFree(*m_container));
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

namespace {

// Of "recording", in front of "recording_b".
class ThrowingSweepOnTheWorker : public ThrowingOnTheWorker {
protected:
    ThrowingSweepOnTheWorker() { configure(targetLine("recording") + targetLine("recording_b")); }
};

} // namespace

TEST_P(ThrowingSweepOnTheWorker, IsSwallowedAndTheTargetBehindItIsUnloaded) {
    OpenContainer container(directory(), true);
    {
        const ScopedHook hook(GetParam(), throwIn({"recording"}));
        for (int i = 1; i <= 2; ++i) {
            configure(GetParam() == "isSyslog" ? targetLine("recording") : "# once more\n");
            ASSERT_TRUE(waitForWorkerRereads(container, i));
            EXPECT_EQ(targetCount(container), 1U);
            EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
        }
    }
    configure("");
    ASSERT_TRUE(waitForWorkerRereads(container, 3));
    EXPECT_EQ(targetCount(container), 0U);
}

INSTANTIATE_TEST_SUITE_P(From, ThrowingSweepOnTheWorker, testing::Values("isSyslog", "getName", "factory", "destroy"));

TEST_F(ThrowingSweepOnTheWorker, WhenANameIsToldTheTargetBehindItIsToldToo) {
    const std::string both = targetLine("recording") + targetLine("recording_b");
    configureApp("player", both + targetLine("throwing", "throw=create"));
    OpenContainer container(directory(), true);
    const ScopedHook hook("appname", throwIn({"recording"}));
    EXPECT_THROW(container->setAppname("player"), std::runtime_error);
    EXPECT_THAT(journal::ofKind("appname"), IsEmpty()) << "the name is left for the next re-read, that of the worker";
    ASSERT_TRUE(
        diagnostics().waitFor("logtarget-container: Watching application-specific config-file \"player\" for changes"));
    configureApp("player", both);
    ASSERT_TRUE(waitForWorkerRereads(container, 1));
    EXPECT_THAT(journal::lines(), Contains("recording_b appname player"));
}
