// Thread names and function tracing.
#include "logger_fixture.hpp"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sstream>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kLevelFile[] = "/etc/tanglelog.cfg";

// Everything that a message says about functions: "TEXT @DEPTH in FUNCTION".
std::vector<std::string> traces() {
    std::vector<std::string> found;
    for (const PluginEvent& event : journal::ofKind("log")) {
        found.push_back(event.text + " @" + std::to_string(event.depth) + " in " + event.functionName);
    }
    return found;
}

class ThreadTrace : public LoggerFixture {
protected:
    ThreadTrace() { configure(target("recording")); }

    // Builds the logger.
    sorrel_component* component(sorrel_level* level = SR_ALL) { return sorrel_create_component("net", level, ""); }

    static const CSorrel::thread_data_t& record() { return CSorrel::thread_data; }
};

// Whether the initialisation that belongs to the first call of a process ran: it appends a line to a file.
class LegacyInitialisation : public LoggerFixture {
protected:
    static bool tookPlace() {
        std::ifstream file(kLevelFile);
        std::ostringstream text;
        text << file.rdbuf();
        std::remove(kLevelFile);
        return text.str() == std::string(program_invocation_short_name) + " 7\n";
    }
};

} // namespace

TEST_F(ThreadTrace, EnteringAndLeavingHaveTheSameDepthAndMessagesBetweenThemOneMore) {
    sorrel_component* const net = component();
    sorrel_enter_function(net, "f");
    _sorrel(net, SR_INFO, "inside");
    sorrel_leave_function(net);
    _sorrel(net, SR_INFO, "outside");
    EXPECT_THAT(traces(), ElementsAre("entering @0 in f", "inside @1 in f", "leaving @0 in f", "outside @0 in "));
}

TEST_F(ThreadTrace, FunctionsNest) {
    sorrel_component* const net = component();
    sorrel_enter_function(net, "f");
    sorrel_enter_function(net, "g");
    _sorrel(net, SR_INFO, "inside");
    sorrel_leave_function(net);
    sorrel_leave_function(net);
    EXPECT_THAT(traces(), ElementsAre("entering @0 in f", "entering @1 in g", "inside @2 in g", "leaving @1 in g",
                                      "leaving @0 in f"));
}

TEST_F(ThreadTrace, ItsMessagesHaveTheLevelOfTracing) {
    sorrel_component* const net = component();
    sorrel_init(net, "worker");
    sorrel_enter_function(net, "f");
    sorrel_leave_function(net);
    sorrel_done(net);
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 4U);
    for (const PluginEvent& message : messages) {
        EXPECT_EQ(message.level, SR_ENTERLEAVE) << message.text;
        EXPECT_EQ(message.componentName, "net");
    }
}

TEST_F(ThreadTrace, KeepsLoweringTheDepthWhenThereIsNoFunctionToLeave) {
    sorrel_component* const net = component();
    sorrel_leave_function(net);
    EXPECT_EQ(record().depth, -1);
    EXPECT_THAT(record().functionStack, IsEmpty());
    _sorrel(net, SR_INFO, "outside");
    sorrel_enter_function(net, "f");
    _sorrel(net, SR_INFO, "inside");
    EXPECT_THAT(traces(), ElementsAre("leaving @-1 in ", "outside @-1 in ", "entering @-1 in f", "inside @0 in f"));
}

TEST_F(ThreadTrace, FunctionsAreTracedWhetherOrNotTheirMessagesPass) {
    sorrel_component* const net = component(SR_INFO);
    sorrel_enter_function(net, "f");
    sorrel_enter_function(nullptr, "g");
    EXPECT_THAT(record().functionStack, ElementsAre("g", "f"));
    EXPECT_EQ(record().depth, 2);
    _sorrel(net, SR_INFO, "inside");
    sorrel_leave_function(nullptr);
    sorrel_leave_function(net);
    EXPECT_THAT(record().functionStack, IsEmpty());
    EXPECT_EQ(record().depth, 0);
    EXPECT_THAT(traces(), ElementsAre("inside @2 in g"));
}

TEST_F(ThreadTrace, ANullFunctionNameIsThrownAndNothingIsPushedLoggedOrCounted) {
    sorrel_component* const net = component();
    sorrel_enter_function(nullptr, "f");
    EXPECT_THROW(sorrel_enter_function(net, nullptr), std::logic_error);
    EXPECT_THAT(record().functionStack, ElementsAre("f"));
    EXPECT_EQ(record().depth, 1);
    EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ThreadTrace, NamesAreCopied) {
    sorrel_component* const net = component(SR_INFO);
    std::string threadName = "worker";
    std::string functionName = "connect";
    sorrel_init(nullptr, threadName.c_str());
    sorrel_enter_function(nullptr, functionName.c_str());
    threadName.assign("xxxxxx");
    functionName.assign("xxxxxxx");
    _sorrel(net, SR_INFO, "hello");
    EXPECT_EQ(messagesOf("recording").at(0).threadName, "worker");
    EXPECT_EQ(messagesOf("recording").at(0).functionName, "connect");
}

TEST_F(ThreadTrace, InitNamesTheThreadAndAnnouncesIt) {
    sorrel_init(component(), "worker");
    ASSERT_THAT(journal::texts(), ElementsAre("----- Thread worker started."));
    EXPECT_EQ(messagesOf("recording")[0].threadName, "worker");
    EXPECT_EQ(record().threadName, "worker");
}

TEST_F(ThreadTrace, InitWithoutAComponentNamesTheThreadAndLogsNothing) {
    CSorrel::getInstance()->init(nullptr, "worker", true);
    EXPECT_EQ(record().threadName, "worker");
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(ThreadTrace, InitAnnouncesNothingWhenItIsNotAskedTo) {
    CSorrel::getInstance()->init(component(), "worker", false);
    EXPECT_EQ(record().threadName, "worker");
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(ThreadTrace, InitAgainRenamesTheThread) {
    sorrel_component* const net = component();
    sorrel_init(net, "first");
    sorrel_init(net, "second");
    EXPECT_THAT(journal::texts(), ElementsAre("----- Thread first started.", "----- Thread second started."));
    EXPECT_EQ(record().threadName, "second");
}

TEST_F(ThreadTrace, DoneAnnouncesTheEndUnderTheNameAndThenRenames) {
    sorrel_component* const net = component();
    sorrel_init(nullptr, "worker");
    sorrel_done(net);
    _sorrel(net, SR_INFO, "after");
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].text, "----- Thread worker ending.");
    EXPECT_EQ(messages[0].threadName, "worker");
    EXPECT_EQ(messages[1].threadName, "<thrd done>");
}

TEST_F(ThreadTrace, DoneOfAThreadWithoutANameSaysSo) {
    sorrel_done(component());
    EXPECT_THAT(journal::texts(), ElementsAre("----- Thread <no name> ending."));
}

TEST_F(ThreadTrace, DoneWithoutAComponentRenamesAndLogsNothing) {
    component();
    sorrel_init(nullptr, "worker");
    sorrel_done(nullptr);
    EXPECT_EQ(record().threadName, "<thrd done>");
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(ThreadTrace, DoneLeavesFunctionsAndDepthAsTheyAre) {
    sorrel_enter_function(nullptr, "f");
    sorrel_done(nullptr);
    EXPECT_THAT(record().functionStack, ElementsAre("f"));
    EXPECT_EQ(record().depth, 1);
}

TEST_F(ThreadTrace, EachThreadHasARecordOfItsOwn) {
    sorrel_component* const net = component(SR_INFO);
    sorrel_init(nullptr, "main");
    sorrel_enter_function(nullptr, "f");
    std::thread([net] {
        EXPECT_EQ(record().threadName, "<no name>");
        EXPECT_EQ(record().depth, 0);
        EXPECT_THAT(record().functionStack, IsEmpty());
        sorrel_leave_function(nullptr);
        sorrel_init(nullptr, "other");
        _sorrel(net, SR_INFO, "hello");
    }).join();
    EXPECT_EQ(messagesOf("recording").at(0).threadName, "other");
    EXPECT_EQ(messagesOf("recording").at(0).depth, -1);
    EXPECT_EQ(record().threadName, "main");
    EXPECT_EQ(record().depth, 1);
    EXPECT_THAT(record().functionStack, ElementsAre("f"));
}

TEST_F(ThreadTrace, TheRecordOfAThreadGoesWithIt) {
    component();
    constexpr std::size_t kMegabyte = 1U << 20U;
    const std::string name(kMegabyte, 'f');
    const auto allocated = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const std::size_t before = allocated();
    for (int i = 0; i < 64; ++i) {
        std::thread([&name] { sorrel_enter_function(nullptr, name.c_str()); }).join();
    }
    EXPECT_LT(allocated(), before + 32 * kMegabyte);
}

TEST_F(ThreadTrace, ItsMessagesGoThroughTheConfiguredLoggerWhicheverItIsCalledOn) {
    sorrel_component* const net = component();
    CSorrel* const plain = CSorrel::getInstance_NoSorrel();
    plain->init(net, "worker", true);
    plain->enterFunction(net, "f");
    plain->leaveFunction(net);
    plain->done(net);
    EXPECT_THAT(traces(), ElementsAre("----- Thread worker started. @0 in ", "entering @0 in f", "leaving @0 in f",
                                      "----- Thread worker ending. @0 in "));
}

TEST_F(ThreadTrace, ATargetThatThrowsAtEnteringLeavesTheFunctionEnteredAndTheDepthAsItWas) {
    configure(target("throwing", "throw=log"));
    EXPECT_THROW(sorrel_enter_function(component(), "f"), std::runtime_error);
    EXPECT_THAT(record().functionStack, ElementsAre("f"));
    EXPECT_EQ(record().depth, 0);
}

TEST_F(ThreadTrace, ATargetThatThrowsAtLeavingLeavesTheFunctionEnteredAndTheDepthLowered) {
    configure(target("throwing", "throw=log"));
    sorrel_enter_function(nullptr, "f");
    EXPECT_THROW(sorrel_leave_function(component()), std::runtime_error);
    EXPECT_THAT(record().functionStack, ElementsAre("f"));
    EXPECT_EQ(record().depth, 0);
}

TEST_F(LegacyInitialisation, ComesWithTheFirstInitOnTheConfiguredLogger) {
    sorrel_create_component("net", SR_ALL, "");
    EXPECT_FALSE(tookPlace());
    sorrel_init(nullptr, "worker");
    EXPECT_TRUE(tookPlace());
    sorrel_init(nullptr, "worker");
    sorrel_init_nosorrel("worker");
    EXPECT_FALSE(tookPlace());
}

TEST_F(LegacyInitialisation, ComesWithTheFirstInitOnTheLoggerWithoutConfiguration) {
    sorrel_init_nosorrel("worker");
    EXPECT_TRUE(tookPlace());
    sorrel_init(nullptr, "worker");
    CSorrel other(false);
    other.init(nullptr, "worker", true);
    std::thread([] { sorrel_init_nosorrel("worker"); }).join();
    EXPECT_FALSE(tookPlace());
}
