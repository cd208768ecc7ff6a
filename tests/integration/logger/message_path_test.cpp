// The road of a message, from the application to the targets.
#include "logger_fixture.hpp"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool formattingFails = false;

class MessagePath : public LoggerFixture {
protected:
    MessagePath() { configure(target("recording")); }

    sorrel_component* m_net = nullptr;

    // Builds the logger.
    void createNet(sorrel_level* level) { m_net = sorrel_create_component("net", level, ""); }

    static std::pair<long long, long long> now() {
        timeval time;
        gettimeofday(&time, nullptr);
        return {time.tv_sec, time.tv_usec};
    }

    static void expectSameMessage(const PluginEvent& left, const PluginEvent& right) {
        EXPECT_EQ(left.processId, right.processId);
        EXPECT_EQ(left.depth, right.depth);
        EXPECT_EQ(left.seconds, right.seconds);
        EXPECT_EQ(left.microseconds, right.microseconds);
        EXPECT_EQ(left.level, right.level);
        EXPECT_EQ(left.threadName, right.threadName);
        EXPECT_EQ(left.componentName, right.componentName);
        EXPECT_EQ(left.functionName, right.functionName);
        EXPECT_EQ(left.text, right.text);
    }
};

} // namespace

// What vsnprintf does with text that cannot be converted, in a libc that leaves the buffer alone then.
extern "C" int fakeVsnprintf(char* buffer, std::size_t size, const char* format, va_list args) __asm__("vsnprintf");
extern "C" int fakeVsnprintf(char* buffer, std::size_t size, const char* format, va_list args) {
    using Function = int (*)(char*, std::size_t, const char*, va_list);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "vsnprintf"));
    return formattingFails ? -1 : real(buffer, size, format, args);
}

TEST_F(MessagePath, ATargetGetsTheNineValuesOfAMessage) {
    createNet(SR_INFO);
    sorrel_init(nullptr, "worker");
    sorrel_enter_function(nullptr, "connect");
    sorrel_level* const level = sorrel::sorrel_level_create(17, 0xffU);
    const auto before = now();
    _sorrel(m_net, level, "port %d of %s", 80, "host");
    const auto after = now();
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 1U);
    const PluginEvent& message = messages[0];
    EXPECT_EQ(message.processId, getpid());
    EXPECT_EQ(message.depth, 1);
    const std::pair<long long, long long> time = {message.seconds, message.microseconds};
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
    EXPECT_LT(message.microseconds, 1000000);
    EXPECT_EQ(message.level, level);
    EXPECT_EQ(message.threadName, "worker");
    EXPECT_EQ(message.componentName, "net");
    EXPECT_EQ(message.functionName, "connect");
    EXPECT_EQ(message.text, "port 80 of host");
    EXPECT_EQ(message.thread, std::this_thread::get_id());
}

TEST_F(MessagePath, OutsideTracedFunctionsTheDepthIs0AndTheFunctionIsEmpty) {
    createNet(SR_INFO);
    _sorrel(m_net, SR_INFO, "hello");
    ASSERT_EQ(messagesOf("recording").size(), 1U);
    EXPECT_EQ(messagesOf("recording")[0].depth, 0);
    EXPECT_EQ(messagesOf("recording")[0].functionName, "");
}

TEST_F(MessagePath, AThreadThatWasNeverNamedIsCalledNoName) {
    createNet(SR_INFO);
    std::thread([this] { _sorrel(m_net, SR_INFO, "hello"); }).join();
    ASSERT_EQ(messagesOf("recording").size(), 1U);
    EXPECT_EQ(messagesOf("recording")[0].threadName, "<no name>");
}

TEST_F(MessagePath, AComponentOfMask8EmitsErrorsAndDropsWarnings) {
    createNet(SR_ERR);
    _sorrel(m_net, SR_WARN, "warning");
    _sorrel(m_net, SR_ERR, "error");
    EXPECT_THAT(journal::texts(), ElementsAre("error"));
}

TEST_F(MessagePath, ANullComponentOrLevelDoesNothing) {
    createNet(SR_ALL);
    _sorrel(nullptr, SR_ERR, "text");
    _sorrel(m_net, nullptr, "text");
    _sorrel(nullptr, nullptr, "text");
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(MessagePath, ALevelWithoutBitsNeverPassesAndOneOfTheBitsIsEnough) {
    createNet(SR_ALL);
    sorrel_component* const debug = sorrel_create_component("debug", SR_DEBUG, "");
    _sorrel(m_net, sorrel_level_create(32), "no bit");
    _sorrel(debug, sorrel::sorrel_bitwise_or_collection({SR_ERR, SR_DEBUG}), "two bits");
    _sorrel(debug, SR_ALL, "all bits");
    EXPECT_THAT(journal::texts(), ElementsAre("two bits", "all bits"));
}

TEST_F(MessagePath, AMessageOf3000CharactersArrivesAsItsFirst2047) {
    createNet(SR_INFO);
    const std::string text = std::string(2046, 'a') + "b" + std::string(953, 'c');
    _sorrel(m_net, SR_INFO, "%s", text.c_str());
    EXPECT_THAT(journal::texts(), ElementsAre(std::string(2046, 'a') + "b"));
}

TEST_F(MessagePath, AMessageOf2047CharactersArrivesWholeAndOneMoreIsCut) {
    createNet(SR_INFO);
    _sorrel(m_net, SR_INFO, "%s", std::string(2047, 'a').c_str());
    _sorrel(m_net, SR_INFO, "%s", std::string(2048, 'b').c_str());
    EXPECT_THAT(journal::texts(), ElementsAre(std::string(2047, 'a'), std::string(2047, 'b')));
}

TEST_F(MessagePath, ATextIsNeitherEscapedNorChecked) {
    createNet(SR_INFO);
    _sorrel(m_net, SR_INFO, "%s", "");
    _sorrel(m_net, SR_INFO, "%s", "%s %d\n\t\x01\xff");
    _sorrel(m_net, SR_INFO, "up to %c here", '\0');
    EXPECT_THAT(journal::texts(), ElementsAre("", "%s %d\n\t\x01\xff", "up to "));
}

TEST_F(MessagePath, ATextThatCannotBeFormattedArrivesEmpty) {
    createNet(SR_INFO);
    _sorrel(m_net, SR_INFO, "the one before");
    formattingFails = true;
    _sorrel(m_net, SR_INFO, "%5d", 7);
    formattingFails = false;
    EXPECT_THAT(journal::texts(), ElementsAre("the one before", ""));
}

TEST_F(MessagePath, ATextOfSorSyslogThatCannotBeFormattedArrivesEmpty) {
    createNet(SR_INFO);
    sor_syslog(m_net, SR_INFO, "the one before");
    formattingFails = true;
    sor_syslog(m_net, SR_INFO, "hello");
    formattingFails = false;
    EXPECT_THAT(journal::texts(), ElementsAre("the one before", ""));
}

TEST_F(MessagePath, ATargetKeepsTheNameOfAFunctionThatItLeavesItself) {
    configure(target("leaving"));
    createNet(SR_INFO);
    const std::string longName(100, 'f');
    sorrel_enter_function(nullptr, longName.c_str());
    sorrel_enter_function(nullptr, "inner");
    _sorrel(m_net, SR_INFO, "one");
    _sorrel(m_net, SR_INFO, "two");
    _sorrel(m_net, SR_INFO, "three");
    const auto messages = messagesOf("leaving");
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[0].functionName, "inner");
    EXPECT_EQ(messages[1].functionName, longName);
    EXPECT_EQ(messages[2].functionName, "");
}

TEST_F(MessagePath, MessagesOfManyThreadsArriveWholeAndInTheOrderOfEachThread) {
    createNet(SR_INFO);
    constexpr int kThreads = 4;
    constexpr int kMessages = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([this, i] {
            const std::string name = "thread " + std::to_string(i);
            sorrel_init_nosorrel(name.c_str());
            for (int k = 0; k < kMessages; ++k) {
                _sorrel(m_net, SR_INFO, "%s says %d", name.c_str(), k);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<std::string, int> counts;
    for (const PluginEvent& message : messagesOf("recording")) {
        int& count = counts[message.threadName];
        EXPECT_EQ(message.text, message.threadName + " says " + std::to_string(count));
        ++count;
    }
    EXPECT_EQ(counts.size(), static_cast<std::size_t>(kThreads));
    EXPECT_EQ(counts["thread 0"], kMessages);
}

TEST_F(MessagePath, AMessageThatATargetLogsInsideItsLogIsOneOfItsOwn) {
    configure(target("recording") + target("relogging"));
    createNet(SR_ERR);
    sorrel_enter_function(nullptr, "connect");
    _sorrel(m_net, SR_ERR, "hello");
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].text, "hello");
    EXPECT_EQ(messages[0].componentName, "net");
    EXPECT_EQ(messages[1].text, "again: hello");
    EXPECT_EQ(messages[1].componentName, "relogging");
    EXPECT_EQ(messages[1].level, SR_INFO);
    EXPECT_EQ(messages[1].functionName, "connect");
    EXPECT_EQ(messages[1].depth, 1);
}

TEST_F(MessagePath, TheOuterMessageReachesTheRemainingTargetsUnchanged) {
    configure(target("recording") + target("relogging") + target("without_hooks"));
    createNet(SR_ERR);
    _sorrel(m_net, SR_ERR, "%s %d", "hello", 5);
    EXPECT_THAT(textsOf("recording"), ElementsAre("hello 5", "again: hello 5"));
    EXPECT_THAT(textsOf("relogging"), ElementsAre("hello 5", "again: hello 5"));
    ASSERT_THAT(textsOf("without_hooks"), ElementsAre("again: hello 5", "hello 5"));
    expectSameMessage(messagesOf("without_hooks")[1], messagesOf("recording")[0]);
}

TEST_F(MessagePath, DepthAndFunctionAreThoseOfTheMomentOfTheCall) {
    configure(target("recording") + target("recording_b"));
    createNet(SR_INFO);
    sorrel_enter_function(nullptr, "connect");
    const ScopedHook hook("log", [](const PluginEvent& event) {
        if (event.library == "recording") {
            sorrel_leave_function(nullptr);
            sorrel_enter_function(nullptr, "log");
            sorrel_enter_function(nullptr, "write");
        }
    });
    _sorrel(m_net, SR_INFO, "hello");
    ASSERT_EQ(messagesOf("recording_b").size(), 1U);
    expectSameMessage(messagesOf("recording_b")[0], messagesOf("recording")[0]);
}

TEST_F(MessagePath, KeepsTheThreadNameAsAReferenceToTheLiveRecord) {
    configure(target("recording") + target("recording_b"));
    createNet(SR_INFO);
    sorrel_init(nullptr, "worker");
    const ScopedHook hook("log", [](const PluginEvent&) { sorrel_init(nullptr, "renamed inside a target"); });
    _sorrel(m_net, SR_INFO, "hello");
    ASSERT_EQ(messagesOf("recording_b").size(), 1U);
    EXPECT_EQ(messagesOf("recording")[0].threadName, "worker");
    EXPECT_EQ(messagesOf("recording_b")[0].threadName, "renamed inside a target");
}

TEST_F(MessagePath, WhatATargetThrowsReachesTheCallerAndLaterTargetsDoNotGetTheMessage) {
    configure(target("recording") + target("throwing", "throw=log") + target("without_hooks"));
    createNet(SR_INFO);
    try {
        _sorrel(m_net, SR_INFO, "hello");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "throwing: log");
    }
    EXPECT_THAT(textsOf("recording"), ElementsAre("hello"));
    EXPECT_THAT(textsOf("throwing"), ElementsAre("hello"));
    EXPECT_THAT(textsOf("without_hooks"), IsEmpty());
}

TEST_F(MessagePath, AfterATargetThrewAnotherThreadCanLog) {
    configure(target("recording") + target("throwing", "throw=log"));
    createNet(SR_INFO);
    EXPECT_THROW(_sorrel(m_net, SR_INFO, "one"), std::runtime_error);
    std::thread([this] { EXPECT_THROW(_sorrel(m_net, SR_INFO, "two"), std::runtime_error); }).join();
    EXPECT_THAT(textsOf("recording"), ElementsAre("one", "two"));
}
