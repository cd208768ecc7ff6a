// Targets that throw each time when they are unloaded, asked whether they write to syslog, or told the name: the others
// have their turn all the same.
#include "container_fixture.hpp"
#include "logger_fixture.hpp"

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

// Of "recording", in front of "recording_b".
class ThrowingSweepOnTheWorker : public ContainerFixture, public testing::WithParamInterface<std::string> {
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
            EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
            EXPECT_FALSE(isLibraryOpen(pluginPath("recording_b")));
        }
    }
    configure("");
    ASSERT_TRUE(waitForWorkerRereads(container, 3));
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
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
