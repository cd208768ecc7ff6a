// The first read of the configuration, which happens while the logger is being built: targets log already, other
// threads wait, and what a target throws ends it.
#include "blocked_thread.hpp"
#include "logger_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

class FirstRead : public LoggerFixture {
protected:
    FirstRead() { configure(target("recording")); }

    // A component that exists without a logger.
    sorrel_component m_own{"own", 0xffffffffU, {}};
};

using Observers = std::vector<std::unique_ptr<ObservedThread>>;

// What throws: a plug-in and its parameters.
struct Thrower {
    std::string name;
    std::string plugin;
    std::string parameters;
};

std::ostream& operator<<(std::ostream& out, const Thrower& thrower) {
    return out << thrower.name;
}

class FailedFirstRead : public FirstRead, public testing::WithParamInterface<Thrower> {
protected:
    // A target that is sound comes first; the component is for the target that throws when it is told of one.
    FailedFirstRead() {
        configure(target("recording") + target(GetParam().plugin, GetParam().parameters) + "component=net,1\n");
    }

    void configureSoundTargets() const { configure(target("recording_b")); }
};

const std::vector<Thrower> kThrowers = {{"init", "throwing_init", ""},
                                        {"create", "throwing", "throw=create"},
                                        {"getName", "throwing", "throw=getName"},
                                        {"isSyslogTarget", "throwing", "throw=isSyslog"},
                                        {"onComponentAdded", "throwing", "throw=component"}};

} // namespace

TEST_F(FirstRead, ATargetMayLogFromWhereverItIsCalled) {
    configure(target("recording") + target("logs_everywhere") + "component=net,1\n");
    _sorrel(&m_own, SR_INFO, "the message that built the logger");
    EXPECT_THAT(textsOf("recording"),
                ElementsAre("logs_everywhere: dynamic_module_init", "logs_everywhere: createObject",
                            "logs_everywhere: constructor", "logs_everywhere: getName",
                            "logs_everywhere: onComponentAdded", "logs_everywhere: isSyslogTarget",
                            "the message that built the logger"));
    EXPECT_THAT(textsOf("logs_everywhere"),
                ElementsAre("logs_everywhere: onComponentAdded", "logs_everywhere: isSyslogTarget",
                            "the message that built the logger"));
}

TEST_F(FirstRead, AComponentThatATargetCreatesIsRegisteredAndAnnounced) {
    configure(target("recording") + target("logs_everywhere"));
    EXPECT_NE(CSorrel::getInstance()->getComponentByName("logs_everywhere"), nullptr);
    ASSERT_EQ(journal::ofKind("component").size(), 1U);
    EXPECT_EQ(journal::ofKind("component")[0].library, "recording");
    EXPECT_EQ(journal::ofKind("component")[0].componentName, "logs_everywhere");
}

TEST_F(FirstRead, ATargetGetsTheLoggerThatIsBeingBuilt) {
    CSorrel* seen = nullptr;
    const ScopedHook hook("create", [&seen](const PluginEvent&) { seen = CSorrel::getInstance(); });
    EXPECT_EQ(CSorrel::getInstance(), seen);
    EXPECT_EQ(journal::ofKind("create").size(), 1U);
}

TEST_F(FirstRead, ANameThatATargetSetsIsOverwritten) {
    std::vector<std::string> names;
    const ScopedHook hook("create", [&names](const PluginEvent&) {
        CSorrel& logger = *CSorrel::getInstance();
        names.push_back(logger.getAppname());
        logger.setApplicationname_Nosorrel("early");
        names.push_back(logger.getAppname());
    });
    EXPECT_EQ(CSorrel::getInstance()->getAppname(), "[no-appname-set]");
    EXPECT_THAT(names, ElementsAre("", "early"));
}

TEST_F(FirstRead, OtherThreadsWaitForItsEndAndThenGetTheSameLogger) {
    constexpr std::size_t kThreads = 4;
    std::vector<CSorrel*> seen(kThreads);
    Observers observers;
    const ScopedHook hook("create", [&](const PluginEvent&) {
        for (CSorrel*& mine : seen) {
            observers.push_back(std::make_unique<ObservedThread>([this, &mine] {
                _sorrel(&m_own, SR_INFO, "from a thread that waited");
                mine = CSorrel::getInstance();
            }));
        }
        for (const auto& observer : observers) {
            EXPECT_TRUE(observer->waitUntilBlocked());
        }
        _sorrel(&m_own, SR_INFO, "before there is a target");
    });
    CSorrel* const logger = CSorrel::getInstance();
    observers.clear();
    EXPECT_THAT(seen, testing::Each(logger));
    EXPECT_EQ(journal::ofKind("create").size(), 1U);
    EXPECT_EQ(journal::texts(), std::vector<std::string>(kThreads, "from a thread that waited"));
}

TEST_F(FirstRead, ATargetMayLogWhileOtherThreadsWait) {
    configure(target("recording") + target("logs_everywhere") + "component=net,1\n");
    Observers observers;
    const ScopedHook hook("init", [&](const PluginEvent&) {
        observers.push_back(std::make_unique<ObservedThread>([this] { _sorrel(&m_own, SR_INFO, "waited"); }));
        EXPECT_TRUE(observers.back()->waitUntilBlocked());
    });
    CSorrel::getInstance();
    observers.clear();
    EXPECT_THAT(textsOf("recording"),
                UnorderedElementsAre("logs_everywhere: dynamic_module_init", "logs_everywhere: createObject",
                                     "logs_everywhere: constructor", "logs_everywhere: getName",
                                     "logs_everywhere: onComponentAdded", "logs_everywhere: isSyslogTarget", "waited",
                                     "waited"));
}

TEST_F(FirstRead, OfTheConfiguredLoggerDoesNotKeepAnyoneFromTheOtherOne) {
    CSorrel* plain = nullptr;
    const ScopedHook hook("create", [&plain](const PluginEvent&) {
        ObservedThread([&plain] { plain = CSorrel::getInstance_NoSorrel(); }).join();
    });
    CSorrel::getInstance();
    EXPECT_EQ(CSorrel::getInstance_NoSorrel(), plain);
}

TEST_P(FailedFirstRead, PassesOnWhatWasThrown) {
    EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
    EXPECT_THROW(_sorrel(&m_own, SR_INFO, "hello"), std::runtime_error);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_P(FailedFirstRead, ReleasesItsTargetsAndClosesItsDescriptors) {
    const auto descriptors = openDescriptors();
    EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(hasMoreThreads(0));
    EXPECT_THAT(journal::lines(), Contains("recording destroy"));
    EXPECT_THAT(journal::lines(), Contains("recording done"));
}

TEST_P(FailedFirstRead, IsTriedAgainByTheNextCall) {
    EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
    configureSoundTargets();
    _sorrel(&m_own, SR_INFO, "hello");
    EXPECT_THAT(textsOf("recording_b"), ElementsAre("hello"));
    EXPECT_EQ(CSorrel::getInstance()->getAppname(), "[no-appname-set]");
    EXPECT_THAT(componentNames(), IsEmpty()) << "those of the first attempt are gone";
    EXPECT_TRUE(hasMoreThreads(1));
}

TEST_P(FailedFirstRead, IsTriedAgainByAThreadThatWaited) {
    std::unique_ptr<ObservedThread> waiting;
    const ScopedHook hook("init", [&](const PluginEvent& event) {
        if (event.library == "recording") {
            waiting = std::make_unique<ObservedThread>([this] { _sorrel(&m_own, SR_INFO, "hello"); });
            EXPECT_TRUE(waiting->waitUntilBlocked());
        }
        if (event.library == GetParam().plugin) {
            configureSoundTargets(); // this attempt has read the file already
        }
    });
    EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
    waiting.reset();
    EXPECT_THAT(textsOf("recording_b"), ElementsAre("hello"));
}

TEST_P(FailedFirstRead, LeavesNothingThatIsReleasedAgainAtTheExit) {
    EXPECT_EXIT(
        {
            EXPECT_THROW(CSorrel::getInstance(), std::runtime_error);
            journal::clear();
            configureSoundTargets();
            _sorrel(&m_own, SR_INFO, "hello");
            journal::echoTo(STDERR_FILENO);
            std::exit(EXIT_SUCCESS);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "^recording_b factory\nrecording_b destroy\nrecording_b done\n$");
}

INSTANTIATE_TEST_SUITE_P(By, FailedFirstRead, testing::ValuesIn(kThrowers),
                         [](const auto& parameter) { return parameter.param.name; });
