// The functions with plain C names: called from C, called first, called with null.
#include "c_api_test.h"

#include "logger_fixture.hpp"

#include <functional>
#include <gmock/gmock.h>
#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

// Read while static objects are made, before main.
const sorrel_level* const earlyErr = SR_ERR;
const sorrel_level earlyAll = *SR_ALL;
const unsigned int earlyFallbackMask = CSorrel::ms_OOMFallbackComp.mask;

class CApi : public LoggerFixture {
protected:
    CApi() { configure(target("recording")); }

    // The configured logger shows by its target and by the thread that watches its file.
    bool isConfiguredLoggerBuilt() const { return journal::ofKind("create").size() == 1 && hasMoreThreads(1); }
    bool isNothingBuilt() const { return journal::events().empty() && hasMoreThreads(0); }
};

struct FirstFunction {
    std::string name;
    std::function<void()> call;
};

std::ostream& operator<<(std::ostream& out, const FirstFunction& function) {
    return out << function.name;
}

sorrel_component filtered{"filtered", 0, {}};

std::vector<FirstFunction> firstFunctions() {
    return {{"sorrel_filtered", [] { _sorrel(&filtered, SR_ERR, "text"); }},
            {"sorrel_null_component", [] { _sorrel(nullptr, SR_ERR, "text"); }},
            {"sorrel_null_level", [] { _sorrel(&filtered, nullptr, "text"); }},
            {"sor_syslog", [] { sor_syslog(nullptr, nullptr, "text"); }},
            {"sorrel_dump", [] { sorrel_dump(nullptr, nullptr, nullptr, 0); }},
            {"sorrel_init", [] { sorrel_init(nullptr, "worker"); }},
            {"sorrel_done", [] { sorrel_done(nullptr); }},
            {"sorrel_enter_function", [] { sorrel_enter_function(nullptr, "f"); }},
            {"sorrel_leave_function", [] { sorrel_leave_function(nullptr); }},
            {"sorrel_create_component", [] { sorrel_create_component("c", nullptr, ""); }},
            {"sorrel_set_applicationname", [] { sorrel_set_applicationname("player"); }},
            {"sorrel_get_component_by_name", [] { sorrel::sorrel_get_component_by_name("c"); }},
            {"sorrel_get_component_names",
             [] {
                 std::vector<std::string> names;
                 sorrel::sorrel_get_component_names(names);
             }},
            {"sorrel_get_level_descriptions",
             [] {
                 std::vector<std::pair<unsigned int, std::string>> descriptions;
                 sorrel::sorrel_get_level_descriptions("c", descriptions);
             }},
            {"sorrel_set_component_level", [] { sorrel::sorrel_set_component_level("c", 1); }},
            {"sorrel_get_component_level", [] { sorrel::sorrel_get_component_level("c"); }}};
}

class FirstCall : public CApi, public testing::WithParamInterface<FirstFunction> {};

} // namespace

TEST_F(CApi, MessagesFromCReachTheTargets) {
    logFromC(createFromC(SR_ALL));
    EXPECT_THAT(journal::texts(),
                ElementsAre("----- Thread c started.", "entering", "port 80 of host", "by way of syslog",
                            "0x00000000 - 41 " + std::string(45, ' ') + "| A", "leaving", "----- Thread c ending."));
    const PluginEvent message = messagesOf("recording").at(2);
    EXPECT_EQ(message.componentName, "net");
    EXPECT_EQ(message.threadName, "c");
    EXPECT_EQ(message.functionName, "connect");
    EXPECT_EQ(message.depth, 1);
    EXPECT_EQ(message.level, SR_INFO);
}

TEST_F(CApi, AComponentFromCIsRegistered) {
    const sorrel_component* const component = createFromC(SR_ERR);
    EXPECT_EQ(component->name, "net");
    EXPECT_EQ(component->mask, 0x8U);
    EXPECT_THAT(component->levelDescriptions, ElementsAre(Pair(8, "ERR"), Pair(16, "WARN")));
    EXPECT_EQ(sorrel::sorrel_get_component_by_name("net"), component);
    EXPECT_EQ(createFromC(nullptr), component);
}

TEST_F(CApi, LevelsFromCAreThoseOfCpp) {
    EXPECT_EQ(checkLevelsFromC(), 0);
    EXPECT_EQ(combineFromC()->numeric, 32);
    EXPECT_EQ(combineFromC()->mask, 0x98U);
}

TEST_F(CApi, LevelsAndTheFallbackComponentAreSetBeforeTheProgramBegins) {
    EXPECT_EQ(earlyErr, SR_ERR);
    EXPECT_EQ(earlyErr->mask, 0x8U);
    EXPECT_EQ(earlyAll.mask, 0xffffffffU);
    EXPECT_EQ(earlyFallbackMask, 0xffffffffU);
}

TEST_F(CApi, LevelFunctionsBuildNoLogger) {
    checkLevelsFromC();
    combineFromC();
    EXPECT_TRUE(isNothingBuilt());
}

TEST_F(CApi, SettingTheNameReturnsTheLoggersOwnCopy) {
    const std::string configured = "player";
    const std::string plain = "viewer";
    const namesFromC names = nameFromC(configured.c_str(), plain.c_str());
    EXPECT_STREQ(names.configured, "player");
    EXPECT_NE(names.configured, configured.c_str());
    EXPECT_EQ(names.configured, CSorrel::getInstance()->getAppname().c_str());
    EXPECT_STREQ(names.plain, "viewer");
    EXPECT_NE(names.plain, plain.c_str());
    EXPECT_EQ(names.plain, CSorrel::getInstance_NoSorrel()->getAppname().c_str());
}

TEST_F(CApi, TheReturnedNameMayBeSetAgain) {
    const char* const name = sorrel_set_applicationname("a name that does not fit into a string itself");
    EXPECT_STREQ(sorrel_set_applicationname(name), "a name that does not fit into a string itself");
}

TEST_F(CApi, TheFunctionsWithoutConfigurationUseTheLoggerWithoutConfiguration) {
    sorrel_init_nosorrel("worker");
    sorrel_set_applicationname_nosorrel("player");
    EXPECT_TRUE(isNothingBuilt());
    EXPECT_EQ(CSorrel::thread_data.threadName, "worker");
    EXPECT_EQ(CSorrel::getInstance_NoSorrel()->getAppname(), "player");
    EXPECT_EQ(CSorrel::getInstance()->getAppname(), "[no-appname-set]");
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(CApi, ANullNameOfAComponentIsThrownAndNothingIsCreated) {
    EXPECT_THROW(sorrel_create_component(nullptr, SR_ERR, "8=ERR"), std::logic_error);
    EXPECT_THAT(componentNames(), IsEmpty());
    EXPECT_THAT(journal::ofKind("component"), IsEmpty());
}

TEST_F(CApi, NullDescriptionsAreThrownAndNothingIsCreated) {
    EXPECT_THROW(sorrel_create_component("net", SR_ERR, nullptr), std::logic_error);
    EXPECT_THAT(componentNames(), IsEmpty());
    EXPECT_THAT(journal::ofKind("component"), IsEmpty());
}

TEST_F(CApi, ANullNameOfTheApplicationIsThrownAndNothingIsChanged) {
    sorrel_set_applicationname("player");
    sorrel_set_applicationname_nosorrel("viewer");
    EXPECT_THROW(sorrel_set_applicationname(nullptr), std::logic_error);
    EXPECT_THROW(sorrel_set_applicationname_nosorrel(nullptr), std::logic_error);
    EXPECT_EQ(CSorrel::getInstance()->getAppname(), "player");
    EXPECT_EQ(CSorrel::getInstance_NoSorrel()->getAppname(), "viewer");
    EXPECT_THAT(journal::ofKind("appname"), SizeIs(1));
}

TEST_P(FirstCall, BuildsTheConfiguredLogger) {
    EXPECT_TRUE(isNothingBuilt());
    GetParam().call();
    EXPECT_TRUE(isConfiguredLoggerBuilt());
    GetParam().call();
    EXPECT_TRUE(isConfiguredLoggerBuilt());
    EXPECT_THAT(journal::texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, FirstCall, testing::ValuesIn(firstFunctions()),
                         [](const auto& parameter) { return parameter.param.name; });
