// The entry for programs that were written for syslog.
#include "logger_fixture.hpp"
#include "syslog_recorder.hpp"

#include <cerrno>
#include <gmock/gmock.h>
#include <syslog.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SorSyslog : public LoggerFixture {
protected:
    SorSyslog() { configure(target("recording")); }

    // Builds the logger; the diagnostic channel, which decides about syslog, is on or off for good.
    void start(bool verbose) {
        if (verbose) {
            setenv("SORREL_VERBOSE_STARTUP", "1", 1);
        }
        m_net = sorrel_create_component("net", SR_ALL, "");
        m_syslog.clear();
    }

    __attribute__((format(printf, 3, 4))) void sorSyslogOn(CSorrel& logger, const char* format, ...) {
        va_list args;
        va_start(args, format);
        logger.sorSyslog(m_net, SR_INFO, format, args);
        va_end(args);
    }

    SyslogRecorder m_syslog;
    sorrel_component* m_net = nullptr;
};

} // namespace

TEST_F(SorSyslog, AMessageGoesToTheTargets) {
    start(false);
    sor_syslog(m_net, SR_INFO, "port %d of %s", 80, "host");
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].text, "port 80 of host");
    EXPECT_EQ(messages[0].level, SR_INFO);
    EXPECT_EQ(messages[0].componentName, "net");
}

TEST_F(SorSyslog, WithTheDiagnosticChannelTurnedOffNothingGoesToSyslog) {
    start(false);
    sor_syslog(m_net, SR_INFO, "hello");
    EXPECT_THAT(m_syslog.texts(), IsEmpty());
}

TEST_F(SorSyslog, WithoutASyslogTargetTheTextGoesToSyslogAtThePriorityOfItsLevel) {
    start(true);
    sor_syslog(m_net, SR_ERR, "port %d", 80);
    sor_syslog(m_net, SR_ENTERLEAVE, "tracing");
    const std::vector<SyslogRecord> records = m_syslog.records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].text, "port 80");
    EXPECT_EQ(records[0].priority, LOG_ERR);
    EXPECT_EQ(records[1].text, "tracing");
    EXPECT_EQ(records[1].priority, LOG_DEBUG);
    EXPECT_THAT(journal::texts(), ElementsAre("port 80", "tracing"));
}

TEST_F(SorSyslog, ASyslogTargetGetsTheTextInPlaceOfSyslog) {
    configure(target("claims_syslog"));
    start(true);
    sor_syslog(m_net, SR_ERR, "hello");
    EXPECT_THAT(m_syslog.texts(), IsEmpty());
    EXPECT_THAT(textsOf("claims_syslog"), ElementsAre("hello"));
}

TEST_F(SorSyslog, WhenTheSyslogTargetIsGoneTheTextGoesToSyslogAgain) {
    configure(target("claims_syslog"));
    start(true);
    configure("");
    ASSERT_TRUE(journal::waitFor([](const PluginEvent& event) { return event.kind == "done"; }));
    m_syslog.clear();
    sor_syslog(m_net, SR_ERR, "hello");
    EXPECT_TRUE(m_syslog.has("hello"));
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(SorSyslog, SyslogGetsWhatTheMaskDrops) {
    start(true);
    sorrel::sorrel_set_component_level("net", 0);
    sor_syslog(m_net, SR_ERR, "filtered");
    sor_syslog(nullptr, SR_ERR, "no component");
    sor_syslog(m_net, nullptr, "no level");
    EXPECT_THAT(m_syslog.texts(), ElementsAre("filtered", "no component", "no level"));
    EXPECT_EQ(m_syslog.records()[1].priority, LOG_ERR);
    EXPECT_EQ(m_syslog.records()[2].priority, LOG_DEBUG);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(SorSyslog, KeepsTheSecondFormattingOfADoubledPercentSign) {
    start(true);
    sor_syslog(m_net, SR_INFO, "100%%%%");
    EXPECT_THAT(m_syslog.texts(), ElementsAre("100%%"));
    EXPECT_THAT(journal::texts(), ElementsAre("100%"));
}

TEST_F(SorSyslog, KeepsInterpretingADirectiveThatTheFirstFormattingLeft) {
    start(true);
    errno = ENOENT;
    sor_syslog(m_net, SR_INFO, "%%m");
    EXPECT_THAT(m_syslog.texts(), ElementsAre("%m"));
    EXPECT_THAT(journal::texts(), ElementsAre("No such file or directory"));
}

TEST_F(SorSyslog, KeepsInterpretingDirectivesOfAnArgument) {
    start(false);
    sor_syslog(m_net, SR_INFO, "%s", "50%%");
    EXPECT_THAT(journal::texts(), ElementsAre("50%"));
}

TEST_F(SorSyslog, TargetsGet2047CharactersAndSyslog1023) {
    start(true);
    const std::string text = std::string(1022, 'a') + "b" + std::string(1023, 'c') + "d" + std::string(953, 'e');
    sor_syslog(m_net, SR_INFO, "%s", text.c_str());
    EXPECT_THAT(m_syslog.texts(), ElementsAre(text.substr(0, 1023)));
    EXPECT_THAT(journal::texts(), ElementsAre(text.substr(0, 2047)));
}

TEST_F(SorSyslog, OfTheLoggerWithoutConfigurationAsksItsOwnContainerForASyslogTarget) {
    configure(target("claims_syslog"));
    start(true);
    sorSyslogOn(*CSorrel::getInstance_NoSorrel(), "%s", "hello");
    EXPECT_THAT(m_syslog.texts(), ElementsAre("hello"));
    EXPECT_THAT(textsOf("claims_syslog"), ElementsAre("hello"));
}
