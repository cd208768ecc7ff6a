// The two loggers of a process: what each of them is, and what happens to them when the process exits.
#include "logger_fixture.hpp"
#include "proc_self.hpp"

#include <atomic>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;

namespace {

struct OpenedLog {
    const char* identity;
    std::string name;
    int options;
    int facility;
};

std::vector<OpenedLog> openedLogs;

class LoggerInstances : public LoggerFixture {
protected:
    LoggerInstances() { configure(target("recording")); }

    static CSorrel* configured() { return CSorrel::getInstance(); }
    static CSorrel* plain() { return CSorrel::getInstance_NoSorrel(); }

    // syslog was opened under the stored name itself, not under a copy.
    static void expectIdentityIsTheName(const OpenedLog& log, const CSorrel& logger) {
        EXPECT_EQ(log.identity, logger.getAppname().c_str());
        EXPECT_EQ(log.name, logger.getAppname());
        EXPECT_EQ(log.options, LOG_PID | LOG_NDELAY);
        EXPECT_EQ(log.facility, LOG_USER);
    }
};

using LoggerInstancesAtExit = LoggerInstances;

// Ends the process after what it logs, and writes down what the targets see until the end.
[[noreturn]] void logAndExit() {
    _sorrel(sorrel_create_component("net", SR_ALL, ""), SR_INFO, "hello");
    CSorrel::getInstance_NoSorrel();
    journal::echoTo(STDERR_FILENO);
    std::exit(EXIT_SUCCESS);
}

// Reads a component when static objects are destroyed: those that were made before the logger after it.
struct ReaderAtExit {
    ReaderAtExit() = default;
    ReaderAtExit(const ReaderAtExit&) = delete;
    ReaderAtExit& operator=(const ReaderAtExit&) = delete;
    ~ReaderAtExit() {
        if (component != nullptr) {
            std::fprintf(stderr, "after the loggers: %s\n", component->name.c_str());
        }
    }

    const sorrel_component* component = nullptr;
};

ReaderAtExit readerAtExit;

} // namespace

extern "C" void fakeOpenlog(const char* identity, int options, int facility) __asm__("openlog");
extern "C" void fakeOpenlog(const char* identity, int options, int facility) {
    openedLogs.push_back({identity, identity, options, facility});
    reinterpret_cast<void (*)(const char*, int, int)>(dlsym(RTLD_NEXT, "openlog"))(identity, options, facility);
}

TEST_F(LoggerInstances, AreTwoObjectsAndTheSameAtEveryCall) {
    EXPECT_NE(configured(), nullptr);
    EXPECT_NE(plain(), nullptr);
    EXPECT_NE(configured(), plain());
    EXPECT_EQ(configured(), configured());
    EXPECT_EQ(plain(), plain());
}

TEST_F(LoggerInstances, AreBuiltOnceForAllThreadsThatAskAtTheSameTime) {
    constexpr int kThreads = 4;
    std::atomic<int> ready{0};
    std::vector<CSorrel*> seen(kThreads);
    std::vector<std::thread> threads;
    for (CSorrel*& mine : seen) {
        threads.emplace_back([&ready, &mine] {
            ++ready;
            while (ready < kThreads) {
                std::this_thread::yield();
            }
            mine = configured();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, testing::Each(configured()));
    EXPECT_EQ(journal::ofKind("create").size(), 1U);
}

TEST_F(LoggerInstances, HaveNoNameAtFirst) {
    EXPECT_EQ(configured()->getAppname(), "[no-appname-set]");
    EXPECT_EQ(plain()->getAppname(), "[no-appname-set]");
    EXPECT_THAT(openedLogs, IsEmpty());
}

TEST_F(LoggerInstances, HaveRegistriesOfTheirOwn) {
    sorrel_component* const first = configured()->createComponent("net", SR_ERR, "8=ERR");
    sorrel_component* const second = plain()->createComponent("net", SR_DEBUG, "8=ERR");
    EXPECT_NE(first, second);
    plain()->setComponentLevel("net", 1);
    EXPECT_EQ(first->mask, 0x8U);
    plain()->createComponent("plain", SR_ERR, "");
    EXPECT_EQ(configured()->getComponentByName("plain"), nullptr);
    EXPECT_EQ(plain()->getComponentByName("net"), second);
}

TEST_F(LoggerInstances, HaveNamesOfTheirOwn) {
    configured()->setApplicationname("player");
    EXPECT_EQ(plain()->getAppname(), "[no-appname-set]");
    plain()->setApplicationname_Nosorrel("viewer");
    EXPECT_EQ(configured()->getAppname(), "player");
    EXPECT_EQ(plain()->getAppname(), "viewer");
}

TEST_F(LoggerInstances, TheOneWithoutConfigurationReadsNothingAndStartsNoThread) {
    const auto descriptors = openDescriptors();
    plain()->createComponent("net", SR_ALL, "");
    plain()->updateComponentLevel("net", "1");
    EXPECT_THAT(journal::events(), IsEmpty());
    EXPECT_TRUE(hasMoreThreads(0));
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LoggerInstances, TheConfiguredOneReadsItsConfigurationAndWatchesIt) {
    configure(target("recording") + "component=net,101\n");
    EXPECT_EQ(configured()->getComponentByName("net")->mask, 5U);
    EXPECT_EQ(journal::ofKind("create").size(), 1U);
    EXPECT_TRUE(hasMoreThreads(1));
    configure(target("recording") + "component=added,11\n");
    EXPECT_TRUE(journal::waitFor([](const PluginEvent& event) { return event.componentName == "added"; }));
}

TEST_F(LoggerInstances, TheConfiguredOneReadsEtcSorrelWhenNothingElseIsSaid) {
    unsetenv("SORL_PATH");
    ASSERT_EQ(mkdir("/etc/sorrel", 0755), 0);
    std::ofstream("/etc/sorrel/sorrel.cfg") << "component=net,101\n";
    EXPECT_EQ(configured()->getComponentByName("net")->mask, 5U);
}

TEST_F(LoggerInstances, ANameIsTheIdentityOfSyslogAndThenGoesToTheContainer) {
    CSorrel& logger = *configured();
    std::size_t openedBefore = 0;
    const ScopedHook hook("appname", [&](const PluginEvent&) { openedBefore = openedLogs.size(); });
    logger.setApplicationname("player");
    ASSERT_EQ(openedLogs.size(), 1U);
    expectIdentityIsTheName(openedLogs[0], logger);
    EXPECT_EQ(openedBefore, 1U);
    ASSERT_EQ(journal::ofKind("appname").size(), 1U);
    EXPECT_EQ(journal::ofKind("appname")[0].text, "player");
}

TEST_F(LoggerInstances, ANameReadsTheFileOfTheApplication) {
    configureApp("player", target("recording") + "component=net,101\n");
    configured()->setApplicationname("player");
    EXPECT_EQ(configured()->getComponentByName("net")->mask, 5U);
}

TEST_F(LoggerInstances, EachNameOpensSyslogAgain) {
    removeConfiguration();
    CSorrel& logger = *configured();
    const std::string longName = "a name that does not fit into a string itself";
    for (const std::string& name : {std::string("player"), longName, longName, std::string("player"), std::string()}) {
        logger.setApplicationname(name);
        EXPECT_EQ(logger.getAppname(), name);
        expectIdentityIsTheName(openedLogs.back(), logger);
    }
    EXPECT_EQ(openedLogs.size(), 5U);
}

TEST_F(LoggerInstances, AnEmptyNameIsTheOneThatTheContainerHasAtFirst) {
    configured()->setApplicationname("");
    ASSERT_EQ(openedLogs.size(), 1U);
    expectIdentityIsTheName(openedLogs[0], *configured());
    EXPECT_THAT(journal::ofKind("appname"), IsEmpty());
}

TEST_F(LoggerInstances, ANameWithoutConfigurationIsTheIdentityOfSyslogAndNothingElse) {
    for (CSorrel* const logger : {plain(), configured()}) {
        journal::clear();
        openedLogs.clear();
        logger->setApplicationname_Nosorrel("viewer");
        ASSERT_EQ(openedLogs.size(), 1U);
        expectIdentityIsTheName(openedLogs[0], *logger);
        EXPECT_THAT(journal::events(), IsEmpty());
    }
}

TEST_F(LoggerInstances, TheTargetsOfTheConfiguredOneAreNotToldOfComponentsOfTheOther) {
    configured();
    journal::clear();
    plain()->createComponent("net", SR_ERR, "");
    EXPECT_THAT(journal::events(), IsEmpty());
}

TEST_F(LoggerInstances, TargetsAreToldOfEachComponentThatIsCreatedDescribedOrUpdated) {
    CSorrel& logger = *configured();
    const sorrel_component* const first = logger.createComponent("net", SR_ERR, "");
    const sorrel_component* const second = logger.createComponent("net", SR_ERR, "");
    logger.createComponent("net", SR_ERR, "8=ERR");
    logger.updateComponentLevel("net", "1");
    logger.updateComponentLevel("new", "1");
    std::vector<const sorrel_component*> told;
    for (const PluginEvent& event : journal::ofKind("component")) {
        told.push_back(event.component);
    }
    EXPECT_THAT(told, ElementsAre(first, second, first, first, logger.getComponentByName("new")));
}

TEST_F(LoggerInstancesAtExit, TheTargetsAreReleasedAndTheirLibrariesClosed) {
    EXPECT_EXIT(logAndExit(), ExitedWithCode(EXIT_SUCCESS), "recording destroy\nrecording done\n");
}

TEST_F(LoggerInstancesAtExit, KeepsTheComponentsForCodeThatRunsLater) {
    EXPECT_EXIT(
        {
            readerAtExit.component = sorrel_create_component("net", SR_ALL, "");
            logAndExit();
        },
        ExitedWithCode(EXIT_SUCCESS), "recording done\nafter the loggers: net\n");
}
