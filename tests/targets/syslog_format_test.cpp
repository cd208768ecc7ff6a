// What the syslog target sends, byte by byte.
#include "datagram_service.hpp"
#include "loaded_target.hpp"
#include "temp_dir.hpp"
#include "verbose_diagnostics.hpp"

#include <gmock/gmock.h>

#include <ctime>
#include <memory>
#include <string>
#include <unistd.h>

#define SYSLOG_NAMES
#include <syslog.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class SyslogFormat : public DiagnosticFixture {
protected:
    SyslogFormat() {
        setenv("TZ", "UTC", 1);
        m_message.processId = 4711;
    }

    // Loads the target anew.
    LoadedTarget& load(const std::string& parameters) {
        m_target = std::make_unique<LoadedTarget>(m_directory, targetPath("syslog"),
                                                  "socket=" + m_directory.file("socket") + ", wait=0, " + parameters);
        return *m_target;
    }

    std::string sent(const TestMessage& message) {
        m_target->say(message);
        return m_service.next();
    }
    std::string sentText(const std::string& text) {
        TestMessage message = m_message;
        message.text = text;
        return sent(message);
    }

    // A line without a target is one that was refused.
    void expectRefused(const std::string& parameters, const std::string& why) {
        load(parameters).say("hello");
        EXPECT_TRUE(m_service.sent().empty()) << parameters;
        EXPECT_TRUE(diagnostics().has("syslog-target: parameter " + why)) << parameters;
    }

    TestMessage m_message;

private:
    TempDir m_directory;
    DatagramService m_service{m_directory.file("socket")};
    std::unique_ptr<LoadedTarget> m_target;
};

// "[sorrel@32473 ...]"
std::string structuredData(const std::string& line) {
    const std::size_t start = line.find(" [") + 1;
    return line.substr(start, line.rfind(']') + 1 - start);
}

} // namespace

TEST_F(SyslogFormat, TheClassicFormIsTheDefault) {
    load("ident=door");
    EXPECT_EQ(sentText("hello"), "<14>Feb 29 13:04:05 door[4711]: net/main: hello");
}

TEST_F(SyslogFormat, TheInnermostFunctionIsNamed) {
    load("ident=door, format=3164");
    m_message.function = "poll";
    m_message.depth = -3;
    EXPECT_EQ(sent(m_message), "<14>Feb 29 13:04:05 door[4711]: net/main: [poll] hello");
}

TEST_F(SyslogFormat, DaysOfOneDigitAreFilledWithABlankAndMonthsAreEnglish) {
    load("ident=door");
    const std::string months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    m_message.seconds = 1704067200; // the first of January 2024
    const long long days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int i = 0; i < 12; ++i) {
        EXPECT_THAT(sent(m_message), StartsWith("<14>" + months[i] + "  1 00:00:00 door["));
        m_message.seconds += days[i] * 86400;
    }
}

TEST_F(SyslogFormat, TheBeginningOfTimeIsATime) {
    load("ident=door");
    m_message.seconds = 0;
    EXPECT_THAT(sent(m_message), StartsWith("<14>Jan  1 00:00:00 door["));
}

TEST_F(SyslogFormat, TimesAreThoseOfTheTimeZone) {
    setenv("TZ", "EST5", 1);
    load("ident=door");
    EXPECT_THAT(sentText("hello"), StartsWith("<14>Feb 29 08:04:05 "));
}

TEST_F(SyslogFormat, ThePriorityHoldsFacilityAndLevel) {
    load("facility=local0");
    for (const int numeric : {0, 3, 7}) {
        m_message.numeric = numeric;
        EXPECT_THAT(sent(m_message), StartsWith("<" + std::to_string(128 + numeric) + ">"));
    }
    m_message.numeric = 8; // entering and leaving functions
    EXPECT_THAT(sent(m_message), StartsWith("<135>"));
}

TEST_F(SyslogFormat, FacilitiesHaveTheNamesOfSyslog) {
    int checked = 0;
    for (const CODE* facility = facilitynames; facility->c_name != nullptr; ++facility) {
        const std::string name = facility->c_name;
        if (name == "kern" || name == "mark" || name == "security") { // the kernel's, none, and an old name
            continue;
        }
        load("facility=" + name);
        EXPECT_THAT(sentText("hello"), StartsWith("<" + std::to_string(facility->c_val + 6) + ">")) << name;
        ++checked;
    }
    EXPECT_EQ(checked, 19);
}

TEST_F(SyslogFormat, WithoutANameTheProgramsIsTaken) {
    load("facility=user");
    const std::string name = std::string(program_invocation_short_name).substr(0, 32);
    EXPECT_THAT(sentText("hello"), HasSubstr(" " + name + "[4711]: "));
}

TEST_F(SyslogFormat, TheApplicationMayHaveBeenNamedBefore) {
    load("application-name=gate");
    EXPECT_THAT(sentText("hello"), HasSubstr(" gate[4711]: "));
}

TEST_F(SyslogFormat, TheNameFollowsTheApplications) {
    LoadedTarget& target = load("facility=user");
    target.container().setAppname("gate");
    EXPECT_THAT(sentText("hello"), HasSubstr(" gate[4711]: "));
    target.container().setAppname("window");
    EXPECT_THAT(sentText("hello"), HasSubstr(" window[4711]: "));
}

TEST_F(SyslogFormat, ANameThatIsGivenStays) {
    LoadedTarget& target = load("ident=door");
    target.container().setAppname("gate");
    EXPECT_THAT(sentText("hello"), HasSubstr(" door[4711]: "));
}

TEST_F(SyslogFormat, TheApplicationsNameIsMadeFitForTheHeader) {
    LoadedTarget& target = load("facility=user");
    target.container().setAppname("a b:c[d]e/f\xc3\xa9\x7f" + std::string(40, 'x'));
    EXPECT_THAT(sentText("hello"), HasSubstr(" a_b_c_d_e_f___" + std::string(18, 'x') + "[4711]: "));
    LoadedTarget& other = load("format=5424");
    other.container().setAppname(std::string(60, 'x'));
    EXPECT_THAT(sentText("hello"), HasSubstr(" " + std::string(48, 'x') + " 4711 "));
}

TEST_F(SyslogFormat, ControlCharactersAreShown) {
    load("ident=door");
    EXPECT_THAT(sentText("a\nb\tc\x1b[2J \xc3\xa9 \xff"), EndsWith(": a\\nb\\tc\\x1b[2J \xc3\xa9 \xff"));
    m_message.thread = "a\nb";
    m_message.component = "c\nd";
    m_message.function = "e\nf";
    EXPECT_THAT(sent(m_message), EndsWith(": c\\nd/a\\nb: [e\\nf] hello"));
}

TEST_F(SyslogFormat, TheNewFormHoldsEverything) {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    load("ident=door, format=5424, facility=daemon");
    m_message.function = "poll";
    m_message.depth = 2;
    EXPECT_EQ(sent(m_message), "<30>1 2024-02-29T13:04:05.000042+00:00 " + std::string(host) +
                                   " door 4711 - [sorrel@32473 component=\"net\" depth=\"2\" function=\"poll\" "
                                   "thread=\"main\"] hello");
}

TEST_F(SyslogFormat, TheNewFormHasTheDistanceToGreenwich) {
    setenv("TZ", "IST-5:30", 1);
    load("format=5424");
    EXPECT_THAT(sentText("hello"), StartsWith("<14>1 2024-02-29T18:34:05.000042+05:30 "));
    setenv("TZ", "EST5", 1);
    tzset();
    load("format=5424");
    EXPECT_THAT(sentText("hello"), StartsWith("<14>1 2024-02-29T08:04:05.000042-05:00 "));
}

TEST_F(SyslogFormat, StructuredDataIsEscaped) {
    load("format=5424");
    m_message.component = "a\"b\\c]d";
    m_message.thread = "\xc3\xa9\xff\n";
    m_message.function = "[]";
    m_message.depth = -1;
    EXPECT_EQ(structuredData(sent(m_message)),
              "[sorrel@32473 component=\"a\\\"b\\\\c\\]d\" depth=\"-1\" function=\"[\\]\" "
              "thread=\"\xc3\xa9\xef\xbf\xbd\\\\n\"]");
}

TEST_F(SyslogFormat, TheNumberOfTheEnterpriseIsChosen) {
    load("format=5424, enterprise=4294967295");
    EXPECT_THAT(sentText("hello"), HasSubstr(" [sorrel@4294967295 component="));
}

TEST_F(SyslogFormat, OnlyUtf8IsMarkedAsSuch) {
    load("format=5424");
    EXPECT_THAT(sentText("\xc3\xa9"), EndsWith("] \xef\xbb\xbf\xc3\xa9"));
    EXPECT_THAT(sentText("e"), EndsWith("] e"));
    EXPECT_THAT(sentText("\xc3\xa9\xff"), EndsWith("] \xc3\xa9\xff"));
    EXPECT_THAT(sentText(""), EndsWith("] "));
}

TEST_F(SyslogFormat, LongTextsArriveWhole) {
    load("ident=door");
    const std::string text(2047, '\x1b');
    EXPECT_EQ(sentText(text).size(), std::string("<14>Feb 29 13:04:05 door[4711]: net/main: ").size() + 4U * 2047);
}

TEST_F(SyslogFormat, OthersLevelsAreLeftOut) {
    LoadedTarget& target = load("ident=door, levels=err");
    target.say("hello");
    m_message.numeric = 3;
    m_message.text = "help";
    EXPECT_EQ(sent(m_message), "<11>Feb 29 13:04:05 door[4711]: net/main: help");
}

TEST_F(SyslogFormat, WhatTheProcessTellsSyslogDoesNotMatter) {
    openlog("another", LOG_PID, LOG_MAIL);
    setlogmask(LOG_MASK(LOG_EMERG));
    load("ident=door");
    EXPECT_THAT(sentText("hello"), StartsWith("<14>Feb 29 13:04:05 door[4711]: "));
    closelog();
    EXPECT_THAT(sentText("hello"), StartsWith("<14>Feb 29 13:04:05 door[4711]: "));
    EXPECT_EQ(setlogmask(0), LOG_MASK(LOG_EMERG));
}

TEST_F(SyslogFormat, TheTargetSaysThatItIsTheOneForSyslog) {
    LoadedTarget& target = load("ident=door");
    EXPECT_TRUE(target.container().hasSyslogTarget());
    target.unload();
    EXPECT_FALSE(target.container().hasSyslogTarget());
}

TEST_F(SyslogFormat, BadParametersRefuseTheTarget) {
    expectRefused("facility=kern", "\"facility\": \"kern\" is none of user, mail, daemon, auth, syslog, lpr, news, "
                                   "uucp, cron, authpriv, ftp, local0, local1, local2, local3, local4, local5, "
                                   "local6, local7");
    expectRefused("format=5425", "\"format\": \"5425\" is none of 3164, 5424");
    expectRefused("ident=a b", "\"ident\": \"a b\" is no name for the system log");
    const std::string longest(32, 'x');
    expectRefused("ident=x" + longest, "\"ident\": \"x" + longest + "\" is no name for the system log");
    load("ident=" + longest);
    EXPECT_THAT(sentText("hello"), HasSubstr(" " + longest + "[4711]: "));
    load("format=5424, ident=x" + longest);
    EXPECT_THAT(sentText("hello"), HasSubstr(" x" + longest + " 4711 "));
    expectRefused("enterprise=0", "\"enterprise\": \"0\" is not a number from 1 to 4294967295");
    expectRefused("host=a", "\"host\": \"a\" is given to a parameter that does not exist");
}
